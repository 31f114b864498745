// SPDX-License-Identifier: MIT
#include "doctor.h"

#include "merge.h"

#include <QFileInfo>
#include <QProcess>
#include <QSettings>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/un.h>
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
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("LC_ALL", "C.UTF-8");
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!process.waitForFinished(longestMs)) {
        process.kill();
        process.waitForFinished();
    }
    if (process.error() != QProcess::UnknownError || process.exitStatus() != QProcess::NormalExit)
        return {};
    return {process.exitCode(), process.readAllStandardOutput()};
}

using Unit = QMap<QString, QString>; // properties of the unit

Unit readUnit()
{
    Unit unit;
    const Result result = run("systemctl",
                              {"show", "lanvoy.service", "--property",
                               "LoadState,ActiveState,SubState,NRestarts,MainPID,User,DropInPaths"});
    for (const QString& line : result.output.split('\n'))
        unit[line.section('=', 0, 0)] = line.section('=', 1);
    return unit;
}

Check checkUnit(const Unit& unit)
{
    const QString look = "journalctl -u lanvoy shows why.";
    if (unit["ActiveState"] != "active")
        return {"unit", Health::Failure,
                QString("lanvoy.service is %1 (%2)").arg(unit["ActiveState"], unit["SubState"]),
                "systemctl start lanvoy; " + look};
    QStringList dropIns;
    for (const QString& path : unit["DropInPaths"].split(' ', Qt::SkipEmptyParts))
        dropIns.append(path.section('/', -1));
    const QString text = QString("lanvoy.service is active, drop-ins: %1")
                             .arg(dropIns.isEmpty() ? QString("none") : dropIns.join(", "));
    if (unit["NRestarts"].toInt() > 0)
        return {"unit", Health::Warning, QString("%1, restarted %2 times").arg(text, unit["NRestarts"]),
                look};
    return {"unit", Health::Ok, text, {}};
}

Check checkBusService(const char* label, const QString& name, const QString& path, Health missing)
{
    const Result result
        = run("busctl", {"--system", "--auto-start=no", "get-property", name, path, name, "Version"});
    const QString version = result.output.section('"', 1, 1);
    if (result.status != 0)
        return {"bus", missing, QString("%1 is not on the system bus").arg(label),
                QString("systemctl start %1").arg(label)};
    constexpr int firstUnknown = 44; // the client library does not notice restarts from 1.44 on
    const bool isTooNew = missing == Health::Failure && version.section('.', 1, 1).toInt() >= firstUnknown;
    return {"bus", isTooNew ? Health::Warning : Health::Ok, QString("%1 %2").arg(label, version),
            isTooNew ? "lanvoy does not notice a restart of NetworkManager 1.44 and newer: restart it too."
                     : ""};
}

QVector<Check> checkRights(const Unit& unit)
{
    const QString user = unit["User"].isEmpty() ? QString("root") : unit["User"];
    if (unit["MainPID"].toInt() == 0 || user == "root")
        return {};
    QStringList refused;
    for (const char* action : {"wifi.scan", "network-control", "settings.modify.system"}) {
        const QString name = QString("org.freedesktop.NetworkManager.%1").arg(action);
        constexpr int notAuthorized = 1;
        constexpr int needsAuthentication = 2; // and nobody is there to do that
        const int status = run("pkcheck", {"--action-id", name, "--process", unit["MainPID"]}).status;
        if (status == notAuthorized || status == needsAuthentication)
            refused.append(action);
        else if (status != 0)
            return {{"rights", Health::Warning, "The rights of the service could not be looked at",
                     "Root can; pkcheck has to be there, and polkit has to answer."}};
    }
    if (refused.isEmpty())
        return {{"rights", Health::Ok, QString("polkit lets user %1 do all three actions").arg(user), {}}};
    return {{"rights", Health::Failure,
             QString("polkit does not let user %1 do: %2").arg(user, refused.join(", ")),
             "Put lanvoy.rules back into /usr/share/polkit-1/rules.d; look for a rule in "
             "/etc/polkit-1/rules.d."}};
}

/** @return whether the user may make files in a directory, by owner, groups and mode */
bool mayWrite(const QString& user, const struct stat& directory)
{
    const passwd* const entry = getpwnam(user.toLocal8Bit().constData());
    if (entry == nullptr || entry->pw_uid == 0)
        return true;
    if (directory.st_uid == entry->pw_uid)
        return (directory.st_mode & S_IWUSR) != 0;
    gid_t groups[64];
    int count = 64;
    getgrouplist(entry->pw_name, entry->pw_gid, groups, &count);
    const bool isMember = std::find(groups, groups + std::clamp(count, 0, 64), directory.st_gid)
        != groups + std::clamp(count, 0, 64);
    return (directory.st_mode & (isMember ? S_IWGRP : S_IWOTH)) != 0;
}

QVector<Check> checkFiles(const Unit& unit, const QString& file)
{
    const QString folder = QFileInfo(file).path();
    const QByteArray path = folder.toLocal8Bit();
    struct stat directory = {};
    struct statvfs system = {};
    if (stat(path.constData(), &directory) != 0 || statvfs(path.constData(), &system) != 0)
        return {{"files", Health::Failure, QString("%1: %2").arg(folder, strerror(errno)),
                 "systemctl restart lanvoy makes it."}};
    QVector<Check> checks;
    // access() knows what holds for root too: read-only file systems and directories that are immutable.
    const bool isFrozen = access(path.constData(), W_OK) != 0 && errno != EACCES;
    if (isFrozen || !mayWrite(unit["User"], directory))
        checks.append({"files", Health::Failure,
                       QString("%1 is not writable: settings cannot be saved").arg(folder),
                       isFrozen ? QString("mount -o remount,rw, or chattr -i %1").arg(folder)
                                : QString("chown %1: %2; chmod 750 %2").arg(unit["User"], folder)});
    constexpr double megabyte = 1024.0 * 1024;
    const double room
        = static_cast<double>(system.f_bavail) * static_cast<double>(system.f_frsize) / megabyte;
    constexpr double least = 1;
    if (system.f_blocks > 0 && room < least)
        checks.append({"files", Health::Failure,
                       QString("%1 has no room left: settings cannot be saved").arg(folder),
                       "Delete something."});

    struct stat settings = {};
    if (stat(file.toLocal8Bit().constData(), &settings) != 0)
        checks.append({"files", Health::Warning, QString("%1: %2").arg(file, strerror(errno)),
                       "Root can look at all of it."});
    else if ((settings.st_mode & S_IROTH) != 0)
        checks.append({"files", Health::Failure,
                       QString("Everybody here can read %1 and the passwords in it").arg(file),
                       QString("chmod o-r %1").arg(file)});
    if (checks.isEmpty())
        checks.append({"files", Health::Ok, QString("%1 is private, its directory writable").arg(file), {}});
    return checks;
}

Check checkLog()
{
    const int reader = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, "/dev/log");
    const bool isThere = connect(reader, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(reader);
    if (isThere)
        return {"log", Health::Ok, "/dev/log is read", {}};
    return {"log", Health::Warning, "Nobody reads /dev/log: each line goes to the console, which is slow",
            "systemctl start systemd-journald-dev-log.socket"};
}

QStringList nmcli(const QStringList& arguments)
{
    return run("nmcli", QStringList {"-t", "-e", "no"} + arguments).output.split('\n', Qt::SkipEmptyParts);
}

QVector<Check> checkNetworkManager()
{
    QVector<Check> checks;
    QStringList names = nmcli({"-f", "NAME", "connection", "show"});
    names.sort();
    QStringList twice;
    for (int i = 1; i < names.size(); ++i) {
        if (names.at(i) == names.at(i - 1) && !twice.contains(names.at(i)))
            twice.append(names.at(i));
    }
    if (!twice.isEmpty())
        checks.append({"profiles", Health::Warning, "Several profiles have the name " + twice.join(", "),
                       "nmcli connection delete UUID, for all but one."});
    for (const QString& line : nmcli({"-f", "TYPE,STATE,DEVICE", "device"})) {
        const QString type = line.section(':', 0, 0);
        const bool isOurs = type == "ethernet" || type == "wifi" || type == "gsm";
        if (isOurs && line.section(':', 1, 1) == "unmanaged")
            checks.append({"device", Health::Warning,
                           QString("%1 is not managed by NetworkManager").arg(line.section(':', 2)),
                           QString("nmcli device set %1 managed yes").arg(line.section(':', 2))});
    }
    return checks;
}

/** Compares what is configured with NetworkManager's profile of the same name. */
QVector<Check> checkProfile(const QString& kind, const QSettings& file)
{
    const QString group = kind.left(1).toUpper() + kind.mid(1);
    const QString fallback = kind == "modem" ? QString("Broadband") : group;
    const QString name = kind == "wifi" ? file.value("Wifi/ssid").toString()
                                        : file.value(group + "/id", fallback).toString();
    if (name.isEmpty())
        return {};
    const QStringList lines
        = nmcli({"-g", "ipv4.method,ipv4.addresses,ipv4.gateway", "connection", "show", "id", name});
    if (lines.isEmpty())
        return {{"profiles", Health::Warning,
                 QString("NetworkManager has no profile '%1' (%2)").arg(name, kind),
                 "It is made when its device is there, plugged in or in range; else look at lanvoy's log."}};
    const Record record = presentOf(kind, file).record;
    const QString method = record["method"];
    const bool isManual = method == "manual";
    const QString wanted = isManual || method == "auto" ? method : QString("link-local");
    QString difference;
    if (lines.first() != wanted)
        difference = QString("method %1 instead of %2").arg(lines.first(), wanted);
    else if (isManual && lines.value(1).section('/', 0, 0) != record["address"])
        difference = QString("address %1 instead of %2").arg(lines.value(1), record["address"]);
    if (difference.isEmpty())
        return {{"profiles", Health::Ok, QString("Profile '%1' is as configured").arg(name), {}}};
    return {{"profiles", Health::Failure,
             QString("Profile '%1' differs from the configuration: %2").arg(name, difference),
             "systemctl restart lanvoy brings it in line; if it does not, its log says why."}};
}

} // namespace

bool isOnGateway()
{
    return readUnit()["LoadState"] == "loaded";
}

QVector<Check> checkGateway(const QString& file)
{
    const Unit unit = readUnit();
    QVector<Check> checks = {checkUnit(unit)};
    const Check manager = checkBusService("NetworkManager", "org.freedesktop.NetworkManager",
                                          "/org/freedesktop/NetworkManager", Health::Failure);
    checks.append(manager);
    checks.append(checkBusService("ModemManager", "org.freedesktop.ModemManager1",
                                  "/org/freedesktop/ModemManager1", Health::Warning));
    checks += checkRights(unit);
    checks += checkFiles(unit, file);
    checks.append(checkLog());
    if (manager.health == Health::Failure)
        return checks;
    checks += checkNetworkManager();
    if (QFileInfo(file).isReadable()) {
        const QSettings settings(file, QSettings::IniFormat);
        for (const QString& kind : kinds())
            checks += checkProfile(kind, settings);
    }
    return checks;
}

} // namespace Ctl
