// SPDX-License-Identifier: MIT
#pragma once

#include "options.h"
#include "text.h"

#include <vector>

namespace Ctl
{

class Session;

/** What a command works with. */
struct Context {
    const Options& options;
    const Look look;
    Session& session;
};

struct Command {
    const char* name;
    const char* synopsis;
    const char* description; // empty: not shown in the help
    int least; // arguments
    int most;
    Exit (*run)(Context& context);
    bool needsBroker = true; // a session before it starts
};

/** @return all commands, in the order of the help */
const std::vector<Command>& commands();

// show.cpp
Exit showStatus(Context& context);
Exit showDevices(Context& context);
Exit showSignal(Context& context);
Exit showUsage(Context& context);
Exit getDocument(Context& context);
Exit complete(Context& context);
// wifi.cpp
Exit wifi(Context& context);
// set.cpp
Exit set(Context& context);
// watch.cpp
Exit watch(Context& context);
// doctor.cpp
Exit doctor(Context& context);

/** The documents that "status" is made of. */
struct Overview {
    QJsonObject info;
    QJsonObject status;
    QVector<QJsonObject> devices; // state documents
};

/**
 * Asks for the state of everything. The interface lists no devices: found are the first of each kind, those
 * of which the broker has a document in store, and the one of the primary connection.
 *
 * @return Done, or why there is nothing, which has been said then
 */
Exit ask(Context& context, Overview& overview);

/** @return the kinds of devices: the first levels of their topics */
const QStringList& kinds();
/** @return the kind of the device that a state document is of */
QString kindOf(const QJsonObject& state);

/** Writes text to standard output. */
void put(const QString& text);
/** Writes one JSON value to standard output. */
void put(const QJsonObject& document);
/** Writes a message to standard error. @return the status, for the caller to return */
Exit fail(Exit status, const QString& message);
/** Says that nobody answered. @return the status */
Exit failUnanswered(const Context& context);

} // namespace Ctl
