// SPDX-License-Identifier: MIT
#include "outcome.h"

#include "session.h"
#include "text.h"

#include <algorithm>

namespace Ctl
{

namespace
{

enum State { Unavailable = 0, Disconnected, Disconnecting, Connecting, Connected };

struct Reason {
    const char* word;
    const char* text;
};

constexpr Reason reasons[] = {
    {"NoSecretsReason", "the key or password is wrong or missing"},
    {"AuthSupplicantDisconnectReason", "the access point refused, the key may be wrong"},
    {"AuthSupplicantConfigFailedReason", "the key does not fit the network's security"},
    {"AuthSupplicantFailedReason", "the access point refused, the key may be wrong"},
    {"AuthSupplicantTimeoutReason", "the access point did not answer in time, the key may be wrong"},
    {"DhcpFailedReason", "there is no DHCP server that answers"},
    {"SsidNotFound", "the network was not found"},
    {"CarrierReason", "no cable"},
    {"GsmSimPinRequired", "the SIM wants its PIN"},
    {"SimPinIncorrect", "the PIN is wrong"},
    {"GsmSimPukRequired", "the SIM wants its PUK"},
    {"GsmSimNotInserted", "there is no SIM"},
    {"GsmRegistrationDeniedReason", "the mobile network refused the SIM"},
    {"ModemManagerUnavailable", "ModemManager is not running"},
};

// Reasons that go with a new connection or with none.
constexpr const char* harmless[] = {"UnknownReason",           "NoReason",      "unknown",
                                    "ConnectionAssumedReason", "NewActivation", "SupplicantAvailableReason",
                                    "ModemAvailable",          "ParentChanged", "ParentManagedChanged"};

bool isFailure(const QJsonObject& state)
{
    return state["state"].toInt() <= Disconnected
        && std::count(std::begin(harmless), std::end(harmless), state["reasonStr"].toString()) == 0;
}

bool fits(const Wanted& wanted, const QJsonObject& state)
{
    if (wanted.kind == "wifi" && valueAt(state, "ap.ssid").toString() != wanted.record["ssid"])
        return false;
    return wanted.record["method"] != "manual"
        || valueAt(state, "ipv4.address") == QJsonValue(wanted.record["address"]);
}

QString connectedText(const QJsonObject& state)
{
    const QString address = textAt(state, "ipv4.address");
    return address.isEmpty() ? QString("Connected") : "Connected, " + address;
}

QString notAsWanted(const Wanted& wanted, const QJsonObject& state)
{
    const QString ssid = textAt(state, "ap.ssid");
    if (wanted.kind == "wifi" && ssid != wanted.record["ssid"])
        return QString("connected to '%1', '%2' may be out of range").arg(ssid, wanted.record["ssid"]);
    return QString("still has the address %1, see the service's log").arg(textAt(state, "ipv4.address"));
}

/** @return plain words for a reason such as "NoSecretsReason", else the word itself */
QString reasonText(const QJsonObject& state)
{
    QString word = textAt(state, "reasonStr");
    for (const Reason& reason : reasons) {
        if (word == reason.word)
            return QString("%1 (%2)").arg(reason.text, word);
    }
    return word;
}

} // namespace

bool hear(const Wanted& wanted, const QString& topic, const QJsonObject& document, Story& story)
{
    story.carriedOut = story.carriedOut || topic == "info";
    // For a device that is missing the service names the question, not the command.
    const bool isOurs = document["command"].toString().startsWith(wanted.kind + "/config/");
    if (topic == "error" && isOurs && mayConcern(document, wanted.interface))
        story.refusal = document["error"].toString();
    if (topic != wanted.kind + "/state" || document["interface"] != wanted.interface)
        return false;
    const bool isMove = story.states.isEmpty() || story.states.last()["state"] != document["state"];
    story.settled = story.settled && !isMove;
    story.states.append(document);
    return isMove;
}

Judgement judge(const Wanted& wanted, const Story& story)
{
    if (!story.refusal.isEmpty())
        return {Verdict::Refused, story.refusal};
    bool moved = false;
    for (const QJsonObject& state : story.states) {
        const int number = state["state"].toInt();
        // The first failure counts: another connection may come up by itself afterwards.
        if (moved && isFailure(state))
            return {Verdict::Failed, "Failed: " + reasonText(state)};
        moved = moved || number == Connecting || number == Disconnecting;
    }
    if (!story.carriedOut || story.states.isEmpty())
        return {};

    const QJsonObject& last = story.states.last();
    const int number = last["state"].toInt();
    if (number == Connected && fits(wanted, last)) {
        if (moved)
            return {Verdict::Connected, connectedText(last)};
        if (!wanted.changes || story.settled)
            return {Verdict::Unchanged, "As before: " + connectedText(last)};
        return {};
    }
    if (!moved && number <= Disconnected && last["reasonStr"] == QJsonValue("CarrierReason"))
        return {Verdict::Failed, "Saved, but not connected: no cable"};
    const bool isElsewhere = number == Connected && wanted.kind == "wifi" && moved;
    if (number == Connected && (story.settled || isElsewhere))
        return {Verdict::Failed, "Saved, but " + notAsWanted(wanted, last)};
    if (story.settled && number <= Disconnected)
        return {Verdict::Failed, "Saved, but not connected: " + reasonText(last)};
    return {};
}

} // namespace Ctl
