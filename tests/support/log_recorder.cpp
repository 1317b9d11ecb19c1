// SPDX-License-Identifier: MIT
#include "support/log_recorder.h"

#include <QtTest/QtTest>

#include <cstdio>
#include <mutex>

namespace {
std::mutex mutex;
LogRecorder *current = nullptr; // by the mutex
} // namespace

LogRecorder::LogRecorder()
{
    {
        const std::lock_guard lock(mutex);
        Q_ASSERT(!current);
        current = this;
    }
    mPrevious = qInstallMessageHandler(&LogRecorder::handle);
}

LogRecorder::~LogRecorder()
{
    qInstallMessageHandler(mPrevious);
    const std::lock_guard lock(mutex);
    current = nullptr;
}

QList<LogRecord> LogRecorder::records() const
{
    const std::lock_guard lock(mutex);
    return mRecords;
}

QStringList LogRecorder::texts() const
{
    QStringList texts;
    for (const LogRecord &record : records())
        texts.append(record.text);
    return texts;
}

void LogRecorder::handle(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    const std::lock_guard lock(mutex);
    if (current)
        current->mRecords.append({type, QString::fromLatin1(context.category), text});
    else
        std::fprintf(stderr, "%s\n", qPrintable(text));
}

LogRecord defaultLogRecord(QtMsgType type, const char *text)
{
    return {type, QStringLiteral("default"), QString::fromUtf8(text)};
}

char *QTest::toString(const LogRecord &record)
{
    return qstrdup(
        qPrintable(QStringLiteral("%1 [%2] %3").arg(static_cast<int>(record.type)).arg(record.category, record.text)));
}
