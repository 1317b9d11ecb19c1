// SPDX-License-Identifier: MIT
#include "support/program.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

namespace {

const QString demo = QStringLiteral(DEMO_PROGRAM);
const QString programs = QFileInfo(QStringLiteral(BUSDUMP_PROGRAM)).path();
const QString recording = QStringLiteral(RECORDINGS_FOLDER "/vehicle.log");

QByteArray lastLine(const QByteArray &text)
{
    return text.trimmed().split('\n').last();
}

void writeFile(const QString &path, const QByteArray &content, QFile::Permissions permissions = QFile::ReadOwner)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size() || !file.setPermissions(permissions))
        qFatal("cannot write a file of the test");
}

} // namespace

class TestDemoVerdict : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir mFolder;

private Q_SLOTS:
    void aRecordingFromAVehiclePasses()
    {
        if (!QFileInfo(recording).isReadable())
            QSKIP(qPrintable(QStringLiteral("there is no recording ") + recording));
        Program run(demo, {programs, recording});
        run.start();
        QCOMPARE(run.waitForStatus(), 0);
        QCOMPARE(lastLine(run.output()),
                 QByteArray("demo: passed: 4000 of 4000 frames arrived, in order and unchanged"));
        QCOMPARE(run.errors(), QByteArray());
    }

    void spellingsOfTheSameFramePass()
    {
        const QString log = mFolder.filePath(QStringLiteral("spellings.log"));
        writeFile(log, "(1) can0 123#ab.cd T\n\n(1) can0 123#R0\n(1) can0 123##711\n"
                       "(1) can0 123#1122334455667788_E\r\n");
        Program run(demo, {programs, log});
        run.start();
        QCOMPARE(run.waitForStatus(), 0);
        QCOMPARE(lastLine(run.output()), QByteArray("demo: passed: 4 of 4 frames arrived, in order and unchanged"));
    }

    void aMissingOrChangedFrameFails_data()
    {
        QTest::addColumn<QByteArray>("filter");
        QTest::addColumn<QByteArray>("verdict");
        QTest::newRow("missing") << QByteArray("3d") << QByteArray("3 of 4");
        QTest::newRow("changed") << QByteArray("s/001#11/001#12/") << QByteArray("4 of 4");
        QTest::newRow("doubled") << QByteArray("2p") << QByteArray("5 of 4");
        QTest::newRow("in another order") << QByteArray("2{h;d};3G") << QByteArray("4 of 4");
    }
    void aMissingOrChangedFrameFails()
    {
        QFETCH(QByteArray, filter);
        QFETCH(QByteArray, verdict);
        QTemporaryDir folder;
        const QString log = folder.filePath(QStringLiteral("short.log"));
        writeFile(log, "(1) can0 001#11\n(1) can0 002#\n(1) can0 003#\n(1) can0 004#\n");
        QVERIFY(QFile::link(QStringLiteral(BUSPLAY_PROGRAM), folder.filePath(QStringLiteral("busplay"))));
        writeFile(folder.filePath(QStringLiteral("busdump")),
                  "#!/bin/sh\n'" BUSDUMP_PROGRAM "' \"$@\" | sed '" + filter + "'\n",
                  QFile::ReadOwner | QFile::ExeOwner);
        Program run(demo, {folder.path(), log});
        run.start();
        QCOMPARE(run.waitForStatus(), 1);
        QCOMPARE(lastLine(run.output()), "demo: FAILED: " + verdict + " frames arrived, with the differences above");
    }

    void aDemonstrationThatCannotRunFails_data()
    {
        QTest::addColumn<QByteArray>("log");
        QTest::addColumn<QByteArray>("verdict");
        QTest::newRow("damaged") << QByteArray("rubbish\n") << QByteArray("demo: FAILED: busplay ended with status 3");
        QTest::newRow("empty") << QByteArray("\n \n") << QByteArray("demo: FAILED: there are no frames in %1");
    }
    void aDemonstrationThatCannotRunFails()
    {
        QFETCH(QByteArray, log);
        QFETCH(QByteArray, verdict);
        QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("test.log"));
        writeFile(path, log);
        Program run(demo, {programs, path});
        run.start();
        QCOMPARE(run.waitForStatus(), 1);
        QCOMPARE(lastLine(run.output()), verdict.replace("%1", path.toLocal8Bit()));
    }

    void aMissingLogFails()
    {
        Program run(demo, {programs, QStringLiteral("/nowhere/missing.log")});
        run.start();
        QCOMPARE(run.waitForStatus(), 1);
        QCOMPARE(run.output(), QByteArray("demo: FAILED: cannot read /nowhere/missing.log\n"));
    }
};

QTEST_GUILESS_MAIN(TestDemoVerdict)
#include "tst_demo_verdict.moc"
