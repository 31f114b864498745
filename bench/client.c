// SPDX-License-Identifier: MIT
/*
 * The two clients of the benchmarks: bare libmosquitto with the least possible delay.
 *
 *     bench_client PORT echo [BYTES...]                                   the floor, until stopped
 *     bench_client PORT ask COUNT SECONDS (REQUEST PAYLOAD REPLY)...      COUNT requests at once, the kinds
 * in turn bench_client PORT watch FILTER...                                   until stopped
 *
 * echo does the least that answers a request: a number on bench/get with a retained document of so many bytes
 * on bench/reply. Once connected it publishes a document on bench/0, bench/1, ... per size given. All of that
 * is at QoS 2, as the service does it. ask prints the number of the kind and the ms until all requests are
 * answered, for each turn. watch says when it is ready and prints per message: monotonic time in s, topic.
 */
#include <mosquitto.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>

enum { turnsOfAKind = 25, timesMax = 1 << 20 };

static const double patience = 20; // seconds until a missing reply is a failure
static char payload[1 << 20];
static double times[timesMax]; // s
static const char* awaited; // the topic of the next reply, null for any
static int replies;
static int ready; // subscriptions

static double now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static void check(int result, const char* what)
{
    if (result == MOSQ_ERR_SUCCESS)
        return;
    fprintf(stderr, "%s: %s\n", what, mosquitto_strerror(result));
    exit(1);
}

/* One turn of the event loop: waits for the socket, at most a second, and handles what is ready. */
static void turn(struct mosquitto* session)
{
    const int on = 1;
    const int socket = mosquitto_socket(session);
    const short wanted = mosquitto_want_write(session) ? POLLIN | POLLOUT : POLLIN;
    struct pollfd state = {socket, wanted, 0};
    poll(&state, 1, 1000);
    if (state.revents & ~POLLOUT) {
        check(mosquitto_loop_read(session, 1), "read");
        setsockopt(socket, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on); // the kernel forgets it at each read
    }
    if (mosquitto_want_write(session))
        check(mosquitto_loop_write(session, 1), "write");
    check(mosquitto_loop_misc(session), "keep alive");
}

static void on_request(struct mosquitto* session, void* object, const struct mosquitto_message* message)
{
    (void)object;
    const int bytes = message->payload != NULL ? atoi(message->payload) : 0;
    mosquitto_publish(session, NULL, "bench/reply", bytes, payload, 2, true);
}

static void on_reply(struct mosquitto* session, void* object, const struct mosquitto_message* message)
{
    (void)session, (void)object;
    if (message->retain)
        return; // of before the subscription
    if (awaited == NULL) {
        printf("%.6f %s\n", now(), message->topic);
        fflush(stdout);
    } else if (strcmp(message->topic, awaited) == 0) {
        ++replies;
    }
}

static void on_subscribed(struct mosquitto* session, void* object, int id, int count, const int* granted)
{
    (void)session, (void)object, (void)id, (void)count, (void)granted;
    ++ready;
}

static void subscribe(struct mosquitto* session, const char* filter)
{
    const int before = ready;
    check(mosquitto_subscribe(session, NULL, filter, 0), filter);
    while (ready == before)
        turn(session);
}

/* Sends count requests of a kind {request, payload, reply} and waits for as many replies; returns the
 * seconds. */
static double ask(struct mosquitto* session, char* kind[], int count)
{
    const double start = now();
    awaited = kind[2];
    replies = 0;
    for (int i = 0; i < count; ++i)
        check(mosquitto_publish(session, NULL, kind[0], (int)strlen(kind[1]), kind[1], 0, false), "publish");
    while (replies < count) {
        turn(session);
        if (now() - start > patience) {
            fprintf(stderr, "%s: %d of %d replies\n", kind[0], replies, count);
            exit(1);
        }
    }
    return now() - start;
}

static void measure(struct mosquitto* session, char* kinds[], int kind_count, int at_once, double seconds)
{
    const double end = now() + seconds;
    const int turns = at_once > 1 ? 1 : turnsOfAKind;
    int count = 0;
    do {
        for (int i = 0; i < kind_count * turns; ++i)
            times[count++] = ask(session, kinds + 3 * (i / turns), at_once);
    } while (now() < end && count + kind_count * turns <= timesMax);
    for (int i = 0; i < count; ++i)
        printf("%d %.4f\n", i / turns % kind_count, times[i] * 1e3);
}

int main(int argc, char* argv[])
{
    if (argc < 3)
        return 2;
    const bool echo = strcmp(argv[2], "echo") == 0;
    mosquitto_lib_init();
    struct mosquitto* const session = mosquitto_new(NULL, true, NULL);
    mosquitto_int_option(session, MOSQ_OPT_TCP_NODELAY, 1);
    mosquitto_message_callback_set(session, echo ? on_request : on_reply);
    mosquitto_subscribe_callback_set(session, on_subscribed);
    check(mosquitto_connect(session, "127.0.0.1", atoi(argv[1]), 60), "connect");

    if (echo) {
        check(mosquitto_subscribe(session, NULL, "bench/get", 0), "subscribe");
        for (int i = 3; i < argc; ++i) {
            char topic[32];
            snprintf(topic, sizeof topic, "bench/%d", i - 3);
            check(mosquitto_publish(session, NULL, topic, atoi(argv[i]), payload, 2, true), "publish");
        }
    } else if (strcmp(argv[2], "watch") == 0) {
        for (int i = 3; i < argc; ++i)
            subscribe(session, argv[i]);
        puts("watching");
        fflush(stdout);
    } else {
        for (int i = 7; i < argc; i += 3)
            subscribe(session, argv[i]);
        measure(session, argv + 5, (argc - 5) / 3, atoi(argv[3]), atof(argv[4]));
        return 0;
    }
    for (;;)
        turn(session);
}
