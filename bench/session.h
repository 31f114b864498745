// What the two clients of the benchmarks have in common: a libmosquitto session with the least possible
// delay.
#pragma once

#include <mosquitto.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>

static inline double now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static inline void check(int result, const char* what)
{
    if (result == MOSQ_ERR_SUCCESS)
        return;
    fprintf(stderr, "%s: %s\n", what, mosquitto_strerror(result));
    exit(1);
}

/* Connects to the broker on 127.0.0.1; ends the program on failure. */
static inline struct mosquitto* open_session(int port)
{
    mosquitto_lib_init();
    struct mosquitto* session = mosquitto_new(NULL, true, NULL);
    mosquitto_int_option(session, MOSQ_OPT_TCP_NODELAY, 1);
    check(mosquitto_connect(session, "127.0.0.1", port, 60), "connect");
    return session;
}

/* One turn of the event loop: waits for the socket, at most timeout_ms, and handles what is ready. */
static inline void turn(struct mosquitto* session, int timeout_ms)
{
    const int on = 1;
    const int socket = mosquitto_socket(session);
    const short wanted = mosquitto_want_write(session) ? POLLIN | POLLOUT : POLLIN;
    struct pollfd state = {socket, wanted, 0};
    poll(&state, 1, timeout_ms);
    if (state.revents & ~POLLOUT) {
        check(mosquitto_loop_read(session, 1), "read");
        setsockopt(socket, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on); // the kernel forgets it at each read
    }
    if (mosquitto_want_write(session))
        check(mosquitto_loop_write(session, 1), "write");
    check(mosquitto_loop_misc(session), "keep alive");
}
