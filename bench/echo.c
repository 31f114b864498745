/*
 * The floor: the least that a client can do to answer requests.
 *
 *     bench_echo PORT [BYTES...]
 *
 * Once connected it publishes one retained document on bench/0, bench/1, ... per size given, and from then on
 * answers a number on bench/get with a retained document of so many bytes on bench/reply. All of that at QoS
 * 2, as the service does. Like the service it tells syslog when it begins to connect.
 */
#include "session.h"

#include <stdbool.h>
#include <string.h>
#include <syslog.h>

static char payload[1 << 20];

static void on_message(struct mosquitto* session, void* object, const struct mosquitto_message* message)
{
    (void)object;
    const int bytes = message->payload != NULL ? atoi(message->payload) : 0;
    mosquitto_publish(session, NULL, "bench/reply", bytes, payload, 2, true);
}

int main(int argc, char* argv[])
{
    if (argc < 2)
        return 2;
    memset(payload, 'x', sizeof payload);
    openlog("bench_echo", LOG_NDELAY, LOG_LOCAL1);
    syslog(LOG_INFO, "Connecting to 127.0.0.1:%s", argv[1]);
    struct mosquitto* const session = open_session(atoi(argv[1]));
    mosquitto_message_callback_set(session, on_message);
    check(mosquitto_subscribe(session, NULL, "bench/get", 0), "subscribe");
    for (int i = 2; i < argc; ++i) {
        char topic[32];
        snprintf(topic, sizeof topic, "bench/%d", i - 2);
        check(mosquitto_publish(session, NULL, topic, atoi(argv[i]), payload, 2, true), "publish");
    }
    for (;;)
        turn(session, 1000);
}
