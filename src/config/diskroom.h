// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Lanvoy
{

/**
 * Whether the disk has room for a new version of a settings file.
 *
 * Ask before giving QSettings a value: it saves by itself later, and on a full disk it replaces the old file
 * by an empty one, because it does not notice that the last write failed.
 *
 * @param path the file, which need not exist
 * @return false when less is free than twice the file's size and one block; true also where the file system
 *         reports no size
 */
bool hasRoomToSave(const QString& path);

} // namespace Lanvoy
