// SPDX-License-Identifier: MIT
/*
 * Many gateways in one process, as a cluster of brokers sees them: each has its own connection and
 * certificate, takes the commands of its branch and publishes what a recorded gateway published, over and
 * over, from a place of its own on.
 *
 *     fleet_clients FOLDER RECORDING PORT...      FOLDER has ca.crt, NAME.crt and NAME.key
 *
 * Standard input: a name per line, an empty line, then questions, each answered with lines and "end":
 *     counts     connected, documents published, acknowledged, connections made so far
 *     documents  NAME TOPIC SERIAL for the last document of each topic
 * The end of the input ends the program. RECORDING: lines "SECONDS TOPIC BYTES", each followed by that many
 * bytes.
 */
#include <mosquitto.h>
#include <poll.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

enum {
    keepAliveSec = 60,
    portsMax = 8,
    recordsMax = 4096,
    topicsMax = 32,
    lineMax = 512,
    pathMax = 600,
    turnMs = 20
};

struct record {
    double at; // s since the start of the recording
    int topic, bytes;
    char* payload;
};

struct gateway {
    char* name;
    struct mosquitto* session;
    bool connected, closed;
    int next; // record that comes next
    int port, step; // the port that is tried next, and which one after it: backwards or forwards
    double due, retry; // s: time of the next record, and of the next attempt to connect
    long serial; // of the last document
    long serials[topicsMax]; // 0: none yet
    int records[topicsMax]; // what the last document of each topic was
};

static struct record records[recordsMax];
static char* topics[topicsMax];
static int record_count, topic_count, port_count, ports[portsMax], gateway_count;
static const char* folder;
static struct gateway* gateways;
static struct pollfd* sockets; // the first one is standard input
static double period; // s that the recording takes
static long published, acknowledged, connections;

static double now(void)
{
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static double between(double low, double high)
{
    return low + (high - low) * (double)random() / (double)RAND_MAX;
}

static void fail(const char* what)
{
    fprintf(stderr, "fleet_clients: %s\n", what);
    exit(1);
}

static int topic_number(const char* topic)
{
    for (int i = 0; i < topic_count; ++i)
        if (strcmp(topics[i], topic) == 0)
            return i;
    if (topic_count == topicsMax)
        fail("too many topics in the recording");
    topics[topic_count] = strdup(topic);
    return topic_count++;
}

static void read_recording(const char* path)
{
    FILE* const file = fopen(path, "r");
    char topic[lineMax];
    if (!file)
        fail("the recording cannot be read");
    for (struct record* r = records; fscanf(file, "%lf %511s %d", &r->at, topic, &r->bytes) == 3; ++r) {
        if (++record_count == recordsMax || r->bytes < 2 || fgetc(file) != '\n')
            fail("this recording is too long, or has a document that is none");
        r->topic = topic_number(topic);
        r->payload = malloc((size_t)r->bytes);
        if (fread(r->payload, 1, (size_t)r->bytes, file) != (size_t)r->bytes)
            fail("the recording ends early");
        period = r->at;
    }
    fclose(file);
    if (record_count < 2)
        fail("there is nothing in the recording");
}

/* A recorded document with the gateway's serial number as its first member. */
static void publish(struct gateway* gateway, int topic)
{
    const struct record* const record = &records[gateway->records[topic]];
    char* const document = malloc((size_t)record->bytes + 32);
    char name[lineMax];
    int length = sprintf(document, "{\"n\": %ld, ", gateway->serials[topic]);
    memcpy(document + length, record->payload + 1, (size_t)record->bytes - 1);
    length += record->bytes - 1;
    snprintf(name, sizeof name, "fleet/%s/%s", gateway->name, topics[topic]);
    if (mosquitto_publish(gateway->session, NULL, name, length, document, 1, true) == MOSQ_ERR_SUCCESS)
        ++published;
    free(document);
}

static void on_connected(struct mosquitto* session, void* object, int result)
{
    struct gateway* const gateway = object;
    static const char* const commands[] = {"+/get", "+/+/get", "+/+/set"};
    char filter[lineMax];
    if (result != 0)
        return;
    gateway->connected = true;
    ++connections;
    for (size_t i = 0; i < sizeof commands / sizeof *commands; ++i) {
        snprintf(filter, sizeof filter, "fleet/%s/%s", gateway->name, commands[i]);
        mosquitto_subscribe(session, NULL, filter, 0);
    }
    for (int topic = 0; topic < topic_count; ++topic) // as a bridge does: what is retained now
        if (gateway->serials[topic])
            publish(gateway, topic);
}

static void on_disconnected(struct mosquitto* session, void* object, int reason)
{
    (void)session, (void)reason;
    ((struct gateway*)object)->closed = true;
}

static void on_acknowledged(struct mosquitto* session, void* object, int id)
{
    (void)session, (void)object, (void)id;
    ++acknowledged;
}

/* Each connection gets a session of its own: what the last one left unsent is gone, as with a bridge's clean
 * session. */
static void open_session(struct gateway* gateway)
{
    char ca[pathMax], certificate[pathMax], key[pathMax];
    snprintf(ca, sizeof ca, "%s/ca.crt", folder);
    snprintf(certificate, sizeof certificate, "%s/%s.crt", folder, gateway->name);
    snprintf(key, sizeof key, "%s/%s.key", folder, gateway->name);
    if (gateway->session)
        mosquitto_destroy(gateway->session);
    gateway->session = mosquitto_new(gateway->name, true, gateway);
    if (!gateway->session
        || mosquitto_tls_set(gateway->session, ca, NULL, certificate, key, NULL) != MOSQ_ERR_SUCCESS)
        fail("no session: is there a certificate?");
    mosquitto_connect_callback_set(gateway->session, on_connected);
    mosquitto_disconnect_callback_set(gateway->session, on_disconnected);
    mosquitto_publish_callback_set(gateway->session, on_acknowledged);
    gateway->connected = false;
    // Not connect_async(): it does not notice a port where nobody listens. Only the TLS handshake takes long
    // on one machine, and nobody waits for that here.
    const int port = ports[gateway->port];
    gateway->port = (gateway->port + gateway->step) % port_count;
    gateway->closed
        = mosquitto_connect(gateway->session, "localhost", port, keepAliveSec) != MOSQ_ERR_SUCCESS;
    gateway->retry = 0;
}

/* The next document, when it is due; while there is no connection the gateway's own state goes on changing.
 */
static void advance(struct gateway* gateway, double time)
{
    if (time < gateway->due)
        return;
    const int topic = records[gateway->next].topic;
    gateway->records[topic] = gateway->next;
    gateway->serials[topic] = ++gateway->serial;
    if (gateway->connected && !gateway->closed)
        publish(gateway, topic);
    const double before = records[gateway->next].at;
    gateway->next = (gateway->next + 1) % record_count;
    const double after = records[gateway->next].at;
    gateway->due += gateway->next ? after - before : after;
}

static void serve(struct gateway* gateway, struct pollfd* socket, double time)
{
    if (gateway->session && !gateway->closed) {
        if (socket->fd >= 0 && socket->revents & ~POLLOUT)
            mosquitto_loop_read(gateway->session, 1);
        if (!gateway->closed && mosquitto_want_write(gateway->session))
            mosquitto_loop_write(gateway->session, 1);
        if (!gateway->closed)
            mosquitto_loop_misc(gateway->session);
    }
    if (gateway->session && (gateway->closed || mosquitto_socket(gateway->session) < 0)
        && gateway->retry <= 0) {
        gateway->connected = false;
        gateway->closed = true;
        gateway->retry = time + between(5, 30); // a mosquitto's bridge waits as long
    }
    if (gateway->retry > 0 && time >= gateway->retry)
        open_session(gateway);
    advance(gateway, time);
}

static void answer(const char* question)
{
    if (strcmp(question, "counts\n") == 0) {
        int connected = 0;
        for (int i = 0; i < gateway_count; ++i)
            connected += gateways[i].connected && !gateways[i].closed;
        printf("%d %ld %ld %ld\n", connected, published, acknowledged, connections);
    } else if (strcmp(question, "documents\n") == 0) {
        for (int i = 0; i < gateway_count; ++i)
            for (int topic = 0; topic < topic_count; ++topic)
                if (gateways[i].serials[topic])
                    printf("%s %s %ld\n", gateways[i].name, topics[topic], gateways[i].serials[topic]);
    }
    puts("end");
    fflush(stdout);
}

static void read_names(void)
{
    char line[lineMax];
    while (fgets(line, sizeof line, stdin) && line[0] != '\n') {
        line[strcspn(line, "\n")] = '\0';
        gateways = realloc(gateways, (size_t)(gateway_count + 1) * sizeof *gateways);
        gateways[gateway_count] = (struct gateway) {
            .name = strdup(line),
            .port = gateway_count % port_count,
            .step = gateway_count / port_count % 2 ? 1 : port_count - 1,
        };
        ++gateway_count;
    }
    sockets = calloc((size_t)gateway_count + 1, sizeof *sockets);
}

/* The first connections are spread over some seconds too, and so are the places in the recording. */
static void begin(double time)
{
    for (int i = 0; i < gateway_count; ++i) {
        struct gateway* const gateway = &gateways[i];
        const double start = time - between(0, period);
        while (gateway->next < record_count - 1 && start + records[gateway->next].at < time) {
            const int topic = records[gateway->next].topic;
            gateway->records[topic] = gateway->next++;
            gateway->serials[topic] = ++gateway->serial;
        }
        gateway->due = start + records[gateway->next].at;
        gateway->retry = time + between(0, 5 + gateway_count / 100.0);
    }
}

int main(int argc, char* argv[])
{
    const struct rlimit files = {1 << 16, 1 << 16};
    char line[lineMax];
    if (argc < 4 || argc > 3 + portsMax)
        return 2;
    folder = argv[1];
    for (int i = 3; i < argc; ++i)
        ports[port_count++] = atoi(argv[i]);
    setrlimit(RLIMIT_NOFILE, &files);
    mosquitto_lib_init();
    read_recording(argv[2]);
    setvbuf(stdin, NULL, _IONBF, 0); // what poll() reports is all there is
    read_names();
    begin(now());
    sockets[0] = (struct pollfd) {STDIN_FILENO, POLLIN, 0};
    for (;;) {
        for (int i = 0; i < gateway_count; ++i) {
            struct gateway* const gateway = &gateways[i];
            const bool open = gateway->session && !gateway->closed;
            const bool writes = open && mosquitto_want_write(gateway->session);
            sockets[i + 1] = (struct pollfd) {open ? mosquitto_socket(gateway->session) : -1,
                                              writes ? POLLIN | POLLOUT : POLLIN, 0};
        }
        poll(sockets, (nfds_t)gateway_count + 1, turnMs);
        const double time = now();
        for (int i = 0; i < gateway_count; ++i)
            serve(&gateways[i], &sockets[i + 1], time);
        if (sockets[0].revents) {
            if (!fgets(line, sizeof line, stdin))
                return 0;
            answer(line);
        }
        usleep(2000); // a batch of events at a time
    }
}
