// SPDX-License-Identifier: MIT
#include "commands.h"

#include "session.h"
#include "views.h"

#include <cstdio>

namespace Ctl
{

const std::vector<Command>& commands()
{
    static const std::vector<Command> table = {
        {"status", "status", "The state of everything (default)", 0, 0, showStatus, statusText},
        {"show", "show [DEVICE]", "All about one device, or about all", 0, 1, showDevices, devicesText},
        {"wifi", "wifi", "Wifi networks in range", 0, 0, showNetworks, networksText},
        {"wifi connect", "wifi connect SSID [FIELD=VALUE...]", "Connects; the key is asked for", 1, 64,
         connectWifi, outcomeText},
        {"set", "set ethernet|wifi|modem FIELD=VALUE...", "Changes the named fields; - asks, @FILE reads", 2,
         64, set, outcomeText},
        {"signal", "signal", "The modem's signal", 0, 0, showSignal, signalText},
        {"usage", "usage", "The modem's data usage per month", 0, 0, showUsage, usageText},
        {"watch", "watch [TOPIC...]", "A line for each change, until Ctrl-C", 0, 64, watch},
        {"get", "get TOPIC [DEVICE]", "A document itself", 1, 2, getDocument},
        {"doctor", "doctor", "Checks the service and what it needs", 0, 0, doctor, checksText, false},
        {"complete", "complete devices|networks|topics", "", 1, 1, complete},
    };
    return table;
}

void put(const QByteArray& text)
{
    fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    fflush(stdout);
}

Exit fail(Exit status, const QString& message)
{
    fprintf(stderr, "lanvoyctl: %s\n", qPrintable(printable(message)));
    return status;
}

Exit failUnanswered(const Context& context)
{
    if (!context.session.isOpen())
        return fail(NoBroker, "The session with the broker was lost.");
    return fail(NoAnswer,
                QString("No answer below '%1' within %2 s: is lanvoy running, and does the broker's access "
                        "list let it and you through?")
                    .arg(context.options.base)
                    .arg(context.options.answerMs / 1000));
}

} // namespace Ctl
