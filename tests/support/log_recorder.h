// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QtGlobal>

/// One record that went to Qt's log.
struct LogRecord
{
    QtMsgType type;
    QString category;
    QString text;

    bool operator==(const LogRecord &other) const = default;
};

/// Keeps all log records of the process while it lives, instead of printing them. One at a time. Other threads may
/// go on logging when it goes.
class LogRecorder
{
public:
    LogRecorder();
    ~LogRecorder();
    LogRecorder(const LogRecorder &) = delete;
    LogRecorder &operator=(const LogRecorder &) = delete;

    /// The records so far. *Thread:* any.
    QList<LogRecord> records() const;
    /// The texts of the records so far, in order.
    QStringList texts() const;

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &text);

    QList<LogRecord> mRecords; // by the mutex of `handle`, which may outlive the recorder
    QtMessageHandler mPrevious = nullptr;
};

/// A record of the default category.
LogRecord defaultLogRecord(QtMsgType type, const char *text);

namespace QTest {
char *toString(const LogRecord &record);
}
