// SPDX-License-Identifier: MIT
#pragma once

#include <QSettings>
#include <QString>

#include <memory>

namespace Lanvoy
{

/**
 * Opens the file that keeps the modem's counters between two samples, in a directory that others may write
 * to.
 *
 * The file and its lock are opened only as regular files of our own user. Anything else was planted there and
 * is removed first: a link would redirect the writing, a pipe or a folder would block it, and what somebody
 * else wrote would be deserialised. Between this check and the opening somebody could plant again, because
 * QSettings opens by name; the kernel's fs.protected_* settings and the packaged unit's own /tmp exclude
 * that.
 *
 * @param path the INI file, which need not exist
 * @return null when what is there cannot be removed, or when the disk has no room to save it again
 */
std::unique_ptr<QSettings> openSnapshot(const QString& path);

} // namespace Lanvoy
