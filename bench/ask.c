/*
 * Asks for documents and measures.
 *
 *     bench_ask PORT rtt SECONDS (REQUEST PAYLOAD REPLY)...    round trips one at a time, the kinds in turn
 *     bench_ask PORT burst COUNT REQUEST PAYLOAD REPLY         COUNT requests at once
 *     bench_ask PORT watch FILTER                              until stopped
 *
 * rtt prints per kind: median, 99th percentile and worst in ms, bytes of the last reply, number of replies.
 * burst prints the seconds to the last reply. watch says when it is ready and prints per message: monotonic
 * time in s, topic, bytes.
 */
#include "session.h"

#include <stdbool.h>
#include <string.h>

enum { kindsMax = 8, inTurn = 25, timesMax = 1 << 20 };

struct kind {
    const char *request, *payload, *reply;
    double* times; // s
    int count, bytes;
};

static const double patience = 20; // seconds until a missing reply is a failure
static struct kind* waiting; // the kind whose reply is expected next
static int replies;

static void on_reply(struct mosquitto* session, void* object, const struct mosquitto_message* message)
{
    (void)session, (void)object;
    if (message->retain || strcmp(message->topic, waiting->reply) != 0)
        return; // the retained one of before
    waiting->bytes = message->payloadlen;
    ++replies;
}

static void on_any(struct mosquitto* session, void* object, const struct mosquitto_message* message)
{
    (void)session, (void)object;
    if (message->retain)
        return; // of before the subscription
    printf("%.6f %s %d\n", now(), message->topic, message->payloadlen);
    fflush(stdout);
}

static int ready;
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
        turn(session, 1000);
}

/* Sends count requests of a kind and waits for as many replies; returns how long that took, in seconds. */
static double ask(struct mosquitto* session, struct kind* kind, int count)
{
    const int length = (int)strlen(kind->payload);
    const double start = now();
    waiting = kind;
    replies = 0;
    for (int i = 0; i < count; ++i)
        check(mosquitto_publish(session, NULL, kind->request, length, kind->payload, 0, false), "publish");
    while (replies < count) {
        turn(session, 1000);
        if (now() - start > patience) {
            fprintf(stderr, "%s: %d of %d replies\n", kind->request, replies, count);
            exit(1);
        }
    }
    return now() - start;
}

static int ascending(const void* a, const void* b)
{
    const double x = *(const double*)a, y = *(const double*)b;
    return (x > y) - (x < y);
}

static void measure_round_trips(struct mosquitto* session, struct kind* kinds, int kind_count, double seconds)
{
    const double end = now() + seconds;
    for (int i = 0; i < kind_count; ++i)
        kinds[i].times = malloc(timesMax * sizeof(double));
    do {
        for (int i = 0; i < kind_count * inTurn; ++i) {
            struct kind* const kind = &kinds[i / inTurn];
            const double time = ask(session, kind, 1);
            if (kind->count < timesMax)
                kind->times[kind->count++] = time;
        }
    } while (now() < end);
    for (struct kind* kind = kinds; kind < kinds + kind_count; ++kind) {
        qsort(kind->times, (size_t)kind->count, sizeof(double), ascending);
        printf("%.4f %.4f %.4f %d %d\n", kind->times[kind->count / 2] * 1e3,
               kind->times[kind->count * 99 / 100] * 1e3, kind->times[kind->count - 1] * 1e3, kind->bytes,
               kind->count);
    }
}

int main(int argc, char* argv[])
{
    if (argc < 4)
        return 2;
    struct mosquitto* const session = open_session(atoi(argv[1]));
    struct kind kinds[kindsMax] = {0};
    int kind_count = 0;
    for (int i = 4; i + 2 < argc && kind_count < kindsMax; i += 3)
        kinds[kind_count++] = (struct kind) {argv[i], argv[i + 1], argv[i + 2], NULL, 0, 0};
    waiting = kinds;

    mosquitto_subscribe_callback_set(session, on_subscribed);
    if (strcmp(argv[2], "watch") == 0) {
        mosquitto_message_callback_set(session, on_any);
        subscribe(session, argv[3]);
        puts("watching");
        fflush(stdout);
        for (;;)
            turn(session, 1000);
    }
    mosquitto_message_callback_set(session, on_reply);
    for (int i = 0; i < kind_count; ++i)
        subscribe(session, kinds[i].reply);
    if (strcmp(argv[2], "burst") == 0)
        printf("%.4f\n", ask(session, kinds, atoi(argv[3])));
    else
        measure_round_trips(session, kinds, kind_count, atof(argv[3]));
    return 0;
}
