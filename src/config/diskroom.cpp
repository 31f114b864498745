// SPDX-License-Identifier: MIT
#include "diskroom.h"

#include <QFile>
#include <QFileInfo>

#include <sys/statvfs.h>

namespace Lanvoy
{

bool hasRoomToSave(const QString& path)
{
    const QFileInfo file(path);
    const QByteArray folder = QFile::encodeName(file.absolutePath());
    struct statvfs disk = {};
    if (statvfs(QFile::encodeName(path).constData(), &disk) != 0 && statvfs(folder.constData(), &disk) != 0)
        return true;
    // ramfs and the like have no size at all.
    const auto room = static_cast<quint64>(disk.f_bavail) * disk.f_frsize;
    return disk.f_blocks == 0 || room >= 2 * static_cast<quint64>(file.size()) + disk.f_frsize;
}

} // namespace Lanvoy
