// SPDX-License-Identifier: MIT
#pragma once

#include "merge.h"
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

using Run = Exit(Context& context, QJsonObject& value); // the value is printed when it is not empty
using Text = QString(const QJsonObject& value, const Look& look); // the value for people

struct Command {
    const char* name;
    const char* synopsis;
    const char* description; // empty: not shown in the help
    int least; // arguments
    int most;
    Run* run;
    Text* text = nullptr; // null: prints by itself
    bool needsBroker = true; // a session before it starts
};

/** @return all commands, in the order of the help */
const std::vector<Command>& commands();

Run showStatus, showDevices, showNetworks, showSignal, showUsage, getDocument, complete; // show.cpp
Run set, connectWifi; // set.cpp
Run watch; // watch.cpp
Run doctor; // doctor.cpp
Text outcomeText; // of set.cpp
Text checksText; // of doctor.cpp

/**
 * Asks for the state of everything: "info", "status" and "devices", a list of state documents. The interface
 * lists no devices: found are the first of each kind, those of which the broker has a document in store, and
 * the one of the primary connection.
 *
 * @param interface  the only device to ask for; empty for all
 * @return Done, or why there is nothing, which has been said then
 */
Exit askOverview(Context& context, QJsonObject& overview, const QString& interface = {});

/** Reads FIELD=VALUE arguments, asks for those with "-". @return the problem, empty for none */
QString readFields(const QString& kind, const QStringList& arguments, Record& given);

/**
 * Changes the given fields of one device's configuration: reads the present one, merges, shows what changes,
 * asks, sends the whole record and waits for the outcome.
 *
 * @param kind    "ethernet", "wifi" or "modem"
 * @param device  its interface; empty for the first of its kind
 */
Exit change(Context& context, const QString& kind, const QString& device, const Record& given,
            QJsonObject& outcome);

/** @return the topics of all documents but "error" */
const QStringList& documentTopics();
/** @return the document, without its secrets unless these are to be shown */
QJsonObject shown(const Context& context, const QJsonObject& document);
/** @return the kinds of devices: the first levels of their topics */
const QStringList& kinds();
/** @return the kind of the device that a state document is of */
QString kindOf(const QJsonObject& state);

/** Writes text to standard output. */
void put(const QByteArray& text);
/** Writes a message to standard error. @return the status, for the caller to return */
Exit fail(Exit status, const QString& message);
/** Says that nobody answered. @return the status */
Exit failUnanswered(const Context& context);

} // namespace Ctl
