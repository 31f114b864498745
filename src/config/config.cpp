// SPDX-License-Identifier: MIT
#include "config.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSettings>

#include <cstdarg>

namespace Lanvoy
{

Config::Config(const QString& fileName, QObject* parent)
    : QObject(parent)
{
    QString path = fileName;
    if (path.isEmpty()) {
        path = QCoreApplication::applicationDirPath() + QLatin1String("/config.ini");
        log(Log::Warning, "Using default config file '%s'", qPrintable(path));
    }
    settings = new QSettings(path, QSettings::NativeFormat, this);
    if (!fileExists(path)) {
        log(Log::Warning, "Config file not found: '%s'.", qPrintable(path));
        log(Log::Warning, "Creating file with default values.");
        writeDefaultConfiguration();
    } else if (settings->status() == QSettings::AccessError) {
        log(Log::Error, "Config file cannot be read: '%s'.", qPrintable(path));
    }
    readConfiguration();
    printConfiguration();
}

void Config::setEthernet(const Ethernet& ethernet)
{
    records.ethernet = ethernet;
    writeConfiguration();
}

void Config::setWifi(const Wifi& wifi)
{
    records.wifi = wifi;
    writeConfiguration();
}

void Config::setModem(const Modem& modem)
{
    records.modem = modem;
    writeConfiguration();
}

bool Config::fileExists(const QString& path)
{
    return QFileInfo(path).isFile();
}

void Config::log(Log::Level level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    Log::vprint(level, "[Config] ", format, args);
    va_end(args);
}

} // namespace Lanvoy
