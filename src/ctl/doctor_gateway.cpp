// SPDX-License-Identifier: MIT
#include "doctor.h"

#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QSettings>
#include <QStorageInfo>

#include <algorithm>
#include <cerrno>

#include <unistd.h>

namespace Ctl
{

namespace
{

struct Result {
    int status = -1; // of the program; negative when it did not run to its end
    QString output;
};

Result run(const QString& program, const QStringList& arguments)
{
    constexpr int longestMs = 20 * 1000;
    QProcess process;
    process.start(program, arguments);
    if (process.waitForFinished(longestMs) && process.exitStatus() == QProcess::NormalExit)
        return {process.exitCode(), process.readAllStandardOutput()};
    process.kill();
    process.waitForFinished();
    return {};
}

QStringList nmcli(const QStringList& arguments)
{
    return run("nmcli", QStringList {"-t", "-e", "no"} + arguments).output.split('\n', Qt::SkipEmptyParts);
}

using Unit = QMap<QString, QString>; // properties of the unit

Unit readUnit()
{
    Unit unit;
    const QString properties = "LoadState,ActiveState,SubState,NRestarts,MainPID,User,DropInPaths";
    const Result result = run("systemctl", {"show", "lanvoy.service", "--property", properties});
    for (const QString& line : result.output.split('\n'))
        unit[line.section('=', 0, 0)] = line.section('=', 1);
    return unit;
}

void checkUnit(QJsonArray& checks, const Unit& unit)
{
    const QString look = "journalctl -u lanvoy shows why.";
    const bool isActive = unit["ActiveState"] == "active";
    const QString state = QString("lanvoy.service is %1 (%2)").arg(unit["ActiveState"], unit["SubState"]);
    QStringList dropIns;
    for (const QString& path : unit["DropInPaths"].split(' ', Qt::SkipEmptyParts))
        dropIns.append(path.section('/', -1));
    const QString text
        = "lanvoy.service is active, drop-ins: " + (dropIns.isEmpty() ? "none" : dropIns.join(", "));
    const QString restarts = unit["NRestarts"];
    report(checks, "unit",
           {{!isActive, failure, state, "systemctl start lanvoy; " + look},
            {isActive && restarts.toInt() > 0, warning, QString("%1, restarted %2 times").arg(text, restarts),
             look}},
           text);
}

/** @return whether the service is on the system bus */
bool checkBus(QJsonArray& checks, const QString& label, const QString& name, const char* missing)
{
    const QString path = '/' + QString(name).replace('.', '/');
    const Result result
        = run("busctl", {"--system", "--auto-start=no", "get-property", name, path, name, "Version"});
    const QString version = result.output.section('"', 1, 1);
    const bool isThere = result.status == 0;
    constexpr int firstUnknown = 44; // the client library does not notice restarts from 1.44 on
    const bool isTooNew = label == "NetworkManager" && version.section('.', 1, 1).toInt() >= firstUnknown;
    report(checks, "bus",
           {{!isThere, missing, label + " is not on the system bus", "systemctl start " + label},
            {isThere && isTooNew, warning, label + ' ' + version,
             "lanvoy does not notice a restart of NetworkManager 1.44 and newer: restart it too."}},
           label + ' ' + version);
    return isThere;
}

void checkRights(QJsonArray& checks, const QString& user, const QString& process)
{
    if (process.toInt() == 0 || user == "root")
        return;
    QStringList refused;
    bool isKnown = true;
    for (const char* action : {"wifi.scan", "network-control", "settings.modify.system"}) {
        const QString name = QString("org.freedesktop.NetworkManager.%1").arg(action);
        const int status = run("pkcheck", {"--action-id", name, "--process", process}).status;
        if (status == 1 || status == 2) // no, or after authentication, for which nobody is there
            refused.append(action);
        else
            isKnown = isKnown && status == 0;
    }
    report(
        checks, "rights",
        {{!isKnown, warning, "The rights of the service could not be looked at",
          "Root can; pkcheck has to be there, and polkit has to answer."},
         {!refused.isEmpty(), failure,
          QString("polkit does not let user %1 do: %2").arg(user, refused.join(", ")),
          "Put lanvoy.rules back into /usr/share/polkit-1/rules.d; see the rules in /etc/polkit-1/rules.d."}},
        QString("polkit lets user %1 do all three actions").arg(user));
}

void checkFiles(QJsonArray& checks, const QString& user, const QString& file)
{
    const QFileInfo settings(file);
    const QFileInfo folder(settings.path());
    const QString path = folder.filePath();
    // access() knows what holds for root too: read-only file systems and directories that are immutable.
    const bool isFrozen = access(qPrintable(path), W_OK) != 0 && errno != EACCES;
    const auto right = folder.owner() == user ? QFile::WriteOwner
        : folder.group() == user              ? QFile::WriteGroup
                                              : QFile::WriteOther;
    const bool isWritable = !isFrozen && (user == "root" || folder.permission(right));
    constexpr qint64 leastRoom = 1 << 20;
    const QStorageInfo storage(path);
    const bool isFull = storage.bytesTotal() > 0 && storage.bytesAvailable() < leastRoom;
    report(checks, "files",
           {{!folder.exists(), failure, path + " is not there", "systemctl restart lanvoy makes it."},
            {folder.exists() && !isWritable, failure, path + " is not writable: settings cannot be saved",
             isFrozen ? "mount -o remount,rw, or chattr -i " + path
                      : QString("chown %1: %2; chmod 750 %2").arg(user, path)},
            {isFull, failure, path + " has no room left: settings cannot be saved", "Delete something."},
            {folder.exists() && !settings.exists(), warning, file + " cannot be seen",
             "Root can look at all of it."},
            {settings.permission(QFile::ReadOther), failure,
             QString("Everybody here can read %1 and the passwords in it").arg(file), "chmod o-r " + file}},
           file + " is private, its directory writable");
}

void checkLog(QJsonArray& checks)
{
    const QStringList arguments = {"--no-act", "--socket-errors=on", "--socket", "/dev/log", "lanvoyctl"};
    report(checks, "log",
           {{run("logger", arguments).status != 0, warning,
             "Nobody reads /dev/log: each line goes to the console, which is slow",
             "systemctl start systemd-journald-dev-log.socket"}},
           "/dev/log is read");
}

void checkNetworkManager(QJsonArray& checks)
{
    const QStringList names = nmcli({"-f", "NAME", "connection", "show"});
    QStringList twice;
    std::copy_if(names.begin(), names.end(), std::back_inserter(twice),
                 [&](const QString& name) { return names.count(name) > 1; });
    twice.removeDuplicates();
    report(checks, "profiles",
           {{!twice.isEmpty(), warning, "Several profiles have the name " + twice.join(", "),
             "nmcli connection delete UUID, for all but one."}});
    for (const QString& line : nmcli({"-f", "TYPE,STATE,DEVICE", "device"})) {
        const QString device = line.section(':', 2);
        const bool isOurs = QStringList {"ethernet", "wifi", "gsm"}.contains(line.section(':', 0, 0));
        report(
            checks, "device",
            {{isOurs && line.section(':', 1, 1) == "unmanaged", warning,
              device + " is not managed by NetworkManager", "nmcli device set " + device + " managed yes"}});
    }
}

/** Compares what is configured with NetworkManager's profile of the same name. */
void checkProfile(QJsonArray& checks, const QString& kind, const QSettings& file)
{
    const QString group = kind.left(1).toUpper() + kind.mid(1);
    const QString fallback = kind == "modem" ? QString("Broadband") : group;
    const QString name = kind == "wifi" ? file.value("Wifi/ssid").toString()
                                        : file.value(group + "/id", fallback).toString();
    if (name.isEmpty())
        return;
    const QStringList lines = nmcli({"-g", "ipv4.method,ipv4.addresses", "connection", "show", "id", name});
    const Record record = presentOf(kind, file).record;
    const bool isManual = record["method"] == "manual";
    const bool isKnown = isManual || record["method"] == "auto";
    const QString wanted = isManual ? "manual " + record["address"] : isKnown ? "auto" : "link-local";
    const QString found = lines.value(0) + (isManual ? ' ' + lines.value(1).section('/', 0, 0) : QString());
    report(checks, "profiles",
           {{lines.isEmpty(), warning, QString("NetworkManager has no profile '%1' (%2)").arg(name, kind),
             "It is made when its device is there, plugged in or in range; else look at lanvoy's log."},
            {!lines.isEmpty() && found != wanted, failure,
             QString("Profile '%1' differs from the configuration: method %2 instead of %3")
                 .arg(name, found, wanted),
             "systemctl restart lanvoy brings it in line; if it does not, its log says why."}},
           QString("Profile '%1' is as configured").arg(name));
}

} // namespace

void checkGateway(QJsonArray& checks, const QString& file)
{
    qputenv("LC_ALL", "C.UTF-8"); // for the words of the programs
    const Unit unit = readUnit();
    if (unit["LoadState"] != "loaded")
        return;
    const QString user = unit["User"].isEmpty() ? QString("root") : unit["User"];
    checkUnit(checks, unit);
    const bool isManaged = checkBus(checks, "NetworkManager", "org.freedesktop.NetworkManager", failure);
    checkBus(checks, "ModemManager", "org.freedesktop.ModemManager1", warning);
    checkRights(checks, user, unit["MainPID"]);
    checkFiles(checks, user, file);
    checkLog(checks);
    if (!isManaged)
        return;
    checkNetworkManager(checks);
    const QSettings settings(file, QSettings::IniFormat);
    for (const QString& kind : QFileInfo(file).isReadable() ? kinds() : QStringList())
        checkProfile(checks, kind, settings);
}

} // namespace Ctl
