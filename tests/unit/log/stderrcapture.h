#pragma once

#include <QTemporaryFile>

#include <unistd.h>

/** Sends the process's standard error to a file for as long as it lives. */
class StderrCapture
{
public:
    StderrCapture()
    {
        file.open();
        dup2(file.handle(), STDERR_FILENO);
    }
    ~StderrCapture()
    {
        dup2(saved, STDERR_FILENO);
        close(saved);
    }
    Q_DISABLE_COPY(StderrCapture)

    /** What was written since the last call. */
    QByteArray take()
    {
        file.seek(position);
        const QByteArray text = file.readAll();
        position += text.size();
        return text;
    }

private:
    QTemporaryFile file;
    int saved = dup(STDERR_FILENO);
    qint64 position = 0;
};
