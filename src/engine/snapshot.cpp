// SPDX-License-Identifier: MIT
#include "snapshot.h"

#include "config/diskroom.h"

#include <QFile>

#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace Lanvoy
{

namespace
{

/** Whether @p path is free or a regular file of our own user, if need be after its removal. */
bool clearPath(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat file = {};
    if (lstat(name.constData(), &file) != 0 || (S_ISREG(file.st_mode) && file.st_uid == geteuid()))
        return true;
    std::error_code error;
    return std::filesystem::remove(name.constData(), error); // follows no link; of folders only empty ones
}

} // namespace

std::unique_ptr<QSettings> openSnapshot(const QString& path)
{
    if (!clearPath(path) || !clearPath(path + QLatin1String(".lock")) || !hasRoomToSave(path))
        return nullptr;
    return std::make_unique<QSettings>(path, QSettings::IniFormat);
}

} // namespace Lanvoy
