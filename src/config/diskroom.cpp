#include "diskroom.h"

#include <QFile>
#include <QFileInfo>

#include <sys/statvfs.h>

namespace Lanvoy
{

bool hasRoomToSave(const QString& path)
{
    constexpr quint64 enough = 65536; // bytes; the files have some hundred
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    struct statvfs disk = {};
    if (statvfs(QFile::encodeName(path).constData(), &disk) != 0 && statvfs(folder.constData(), &disk) != 0)
        return true;
    return static_cast<quint64>(disk.f_bavail) * disk.f_frsize >= enough;
}

} // namespace Lanvoy
