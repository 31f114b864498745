// SPDX-License-Identifier: MIT
#pragma once

#include <QTemporaryFile>

#include <unistd.h>

/** What the process writes to standard error during @p work. */
template<typename Work> QByteArray stderrOf(const Work& work)
{
    QTemporaryFile file;
    file.open();
    const int saved = dup(STDERR_FILENO);
    dup2(file.handle(), STDERR_FILENO);
    work();
    dup2(saved, STDERR_FILENO);
    close(saved);
    file.seek(0);
    return file.readAll();
}
