// SPDX-License-Identifier: MIT
#include "support/log_recorder.h"

#include <QtTest/QtTest>

namespace {
LogRecorder *current = nullptr;
}

LogRecorder::LogRecorder()
{
    Q_ASSERT(!current);
    current = this;
    mPrevious = qInstallMessageHandler(&LogRecorder::handle);
}

LogRecorder::~LogRecorder()
{
    qInstallMessageHandler(mPrevious);
    current = nullptr;
}

QList<LogRecord> LogRecorder::records() const
{
    const QMutexLocker lock(&mMutex);
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
    const QMutexLocker lock(&current->mMutex);
    current->mRecords.append({type, QString::fromLatin1(context.category), text});
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
