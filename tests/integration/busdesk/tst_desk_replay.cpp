// SPDX-License-Identifier: MIT
#include "busdesk/desk_window.h"
#include "busdesk/frame_texts.h"
#include "busdesk/replay_panel.h"
#include "busdesk/trace_model.h"
#include "busdesk/trace_panel.h"
#include "desk_user.h"
#include "recording_files.h"
#include "support/fake_adapter.h"
#include "support/fake_serial_adapter.h"
#include "support/frame_recorder.h"
#include "support/free_port.h"

#include <QtWidgets/QComboBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QProgressBar>
#include <QtWidgets/QTabWidget>

#include <memory>

using buslink::DeskWindow;
using buslink::Replay;

namespace {

const QByteArray longFrame = "(1.0) a 12345678##1" + QByteArray(128, '0') + '\n';

QStringList asLines(const QVector<CAN::CanMessage> &messages)
{
    QStringList lines;
    for (const CAN::CanMessage &message : messages) {
        CAN::CanRxMessage record;
        record.message = message;
        lines.append(buslink::logText(record).section(QLatin1Char(' '), 2));
    }
    return lines;
}

} // namespace

class TestDeskReplay : public QObject, RecordingFiles
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { mWindow.reset(); }

    void framesAreWrittenInOrderWithTheirPauses()
    {
        FakeAdapter adapter;
        Replay replay;
        QStringList ends;
        connect(&replay, &Replay::ended, &replay, [&](const QString &error) { ends.append(error); });
        replay.setRecording(readAll("(1.0) a 123#01\n(1.0) a 124#R2\n(1.1) a 12345678##0AABB\n"));
        QElapsedTimer time;
        time.start();
        replay.start(&adapter);
        QCOMPARE(replay.sentFrames(), std::size_t(2));
        QTRY_COMPARE_WITH_TIMEOUT(ends, QStringList{QString()}, PatienceMs);
        QVERIFY(time.elapsed() >= 100);
        QCOMPARE(asLines(adapter.written()), strings({"123#01", "124#R2", "12345678##0AABB"}));
        QCOMPARE(replay.positionUs(), qint64(100000));
        QVERIFY(!replay.isRunning());
        QCOMPARE(replay.adapter(), nullptr);
    }

    void manyFramesAtOnceLeaveTheEventLoopItsTurns()
    {
        QByteArray text;
        for (int i = 0; i < 1000; ++i)
            text += "(1.0) a 123#01\n";
        FakeAdapter adapter;
        Replay replay;
        replay.setRecording(readAll(text));
        replay.start(&adapter);
        QVERIFY(replay.isRunning());
        QCOMPARE(adapter.written().size(), 200);
        QTRY_VERIFY_WITH_TIMEOUT(!replay.isRunning(), PatienceMs);
        QCOMPARE(adapter.written().size(), 1000);
    }

    void aPauseHoldsTheRecordingWhereItIs()
    {
        FakeAdapter adapter;
        Replay replay;
        replay.setRecording(readAll("(1.0) a 123#\n(1.3) a 124#\n"));
        replay.start(&adapter);
        replay.setPaused(true);
        const qint64 position = replay.positionUs();
        QTest::qWait(400); // longer than the recorded pause
        QCOMPARE(adapter.written().size(), 1);
        QCOMPARE(replay.positionUs(), position);
        QVERIFY(replay.isRunning() && replay.isPaused());
        QElapsedTimer time;
        time.start();
        replay.setPaused(false);
        QTRY_VERIFY_WITH_TIMEOUT(!replay.isRunning(), PatienceMs);
        QCOMPARE(adapter.written().size(), 2);
        QVERIFY(time.nsecsElapsed() / 1000 >= 300000 - position);
    }

    void aStoppedReplayNeverTouchesItsAdapterAgain()
    {
        auto adapter = std::make_unique<FakeAdapter>();
        Replay replay;
        replay.setRecording(readAll("(1.0) a 123#\n(1.01) a 124#\n"));
        replay.start(adapter.get());
        replay.stop();
        adapter.reset();
        QTest::qWait(50); // longer than the recorded pause
        QCOMPARE(replay.sentFrames(), std::size_t(1));
    }

    void aFullBufferIsTriedAgain()
    {
        FakeAdapter adapter;
        int calls = 0;
        adapter.onWrite = [&calls](CAN::CanMessage *) { return ++calls < 4 ? CAN::RetTxBufferFull : CAN::RetOk; };
        Replay replay;
        replay.setRecording(readAll("(1.0) a 123#\n(1.0) a 124#\n"));
        replay.start(&adapter);
        QTRY_VERIFY_WITH_TIMEOUT(!replay.isRunning(), PatienceMs);
        QCOMPARE(asLines(adapter.written()), strings({"123#", "123#", "123#", "123#", "124#"}));
        QCOMPARE(replay.sentFrames(), std::size_t(2));
    }

    void aSlowLineIsNotOverrun()
    {
        FakeSerialAdapter adapter(110); // 100 ms a byte, so 8 s for the longest frame
        Replay replay;
        replay.setRecording(readAll(longFrame.repeated(20)));
        replay.start(&adapter);
        QCOMPARE(adapter.written, 1);
        QCOMPARE(replay.sentFrames(), std::size_t(1));
        QVERIFY(replay.isRunning());
        // The frame of the first start is still on the line.
        replay.start(&adapter);
        QCOMPARE(adapter.written, 1);
        QVERIFY(replay.isRunning());
        FakeAdapter other;
        replay.start(&other);
        QCOMPARE(other.written().size(), 20);
        QVERIFY(!replay.isRunning());
    }

    void aSlowLineTakesItsTime()
    {
        FakeSerialAdapter adapter(11000); // 1 ms a byte, so 82 ms for the longest frame
        Replay replay;
        replay.setRecording(readAll(longFrame.repeated(20)));
        QElapsedTimer time;
        time.start();
        replay.start(&adapter);
        QVERIFY(replay.isRunning());
        QTRY_VERIFY_WITH_TIMEOUT(!replay.isRunning(), PatienceMs);
        QCOMPARE(adapter.written, 20);
        // All but what may wait, which is a second and the last frame.
        QVERIFY(time.elapsed() >= 20 * 82 - 1000 - 82);
    }

    void whatWasTracedAndSavedIsLoadedAndPlayedAgain()
    {
        openWindow();
        const QStringList frames = strings({"123#1122334455667788", "12345678#R4", "456##1000102030405060708090A0B"});
        auto *const other = mWindow->desk().adapter(2);
        for (const QString &frame : frames) {
            CAN::CanMessage message;
            QCOMPARE(buslink::parseFrame(frame.toStdString(), message), std::string());
            QCOMPARE(other->write(message), CAN::RetOk);
        }
        QTRY_COMPARE_WITH_TIMEOUT(tracedBy(1), frames, PatienceMs);
        part<QComboBox>(*mWindow, "traceAdapter")->setCurrentText(QStringLiteral("adapter 1"));
        const QString path = newFile();
        QCOMPARE(mWindow->tracePanel()->saveTo(path), QString());
        click(*mWindow, "clearTrace");

        part<QTabWidget>(*mWindow, "pages")->setCurrentWidget(mWindow->replayPanel());
        load(path);
        QCOMPARE(text("replayFile").section(QLatin1Char(':'), 1, 1).section(QLatin1Char(','), 0, 0),
                 QStringLiteral(" 3 frames"));
        click(*mWindow, "replayPlay");
        QTRY_COMPARE_WITH_TIMEOUT(part<QProgressBar>(*mWindow, "replayProgress")->text(),
                                  QStringLiteral("3 of 3 frames"), PatienceMs);
        part<QComboBox>(*mWindow, "traceAdapter")->setCurrentText(QStringLiteral("adapter 2"));
        QTRY_COMPARE_WITH_TIMEOUT(tracedBy(2), frames, PatienceMs);
        QTRY_COMPARE_WITH_TIMEOUT(text("replayPlay"), QStringLiteral("&Play"), PatienceMs);
        QCOMPARE(text("replayProblem"), QString());

        // Without sending them, the frames are shown under the adapter that recorded them.
        click(*mWindow, "clearTrace");
        part<QComboBox>(*mWindow, "traceAdapter")->setCurrentIndex(0);
        click(*mWindow, "replayShow");
        QCOMPARE(tracedBy(1), frames);
        QCOMPARE(mWindow->tracePanel()->model()->rowCount(), 3);
    }

    void aReplayIsPausedAndStoppedByItsButtons()
    {
        openWindow();
        load(fileWith("(1.0) a 123#\n(60.0) a 124#\n"));
        QCOMPARE(text("replayPlay"), QStringLiteral("&Play"));
        QVERIFY(!part<QPushButton>(*mWindow, "replayStop")->isEnabled());
        click(*mWindow, "replayPlay");
        QCOMPARE(text("replayPlay"), QStringLiteral("&Pause"));
        QTRY_COMPARE_WITH_TIMEOUT(part<QProgressBar>(*mWindow, "replayProgress")->text(),
                                  QStringLiteral("1 of 2 frames"), PatienceMs);
        QVERIFY(!part<QComboBox>(*mWindow, "replayAdapter")->isEnabled());
        click(*mWindow, "replayPlay");
        QCOMPARE(text("replayPlay"), QStringLiteral("&Play on"));
        click(*mWindow, "replayPlay");
        QCOMPARE(text("replayPlay"), QStringLiteral("&Pause"));
        click(*mWindow, "replayStop");
        QCOMPARE(text("replayPlay"), QStringLiteral("&Play"));
        QVERIFY(text("replayTime").endsWith(QStringLiteral(" of 59.0 s")));
        QCOMPARE(part<QProgressBar>(*mWindow, "replayProgress")->value(), 1);
        load(fileWith("(1.0) a 123#\n"));
        QCOMPARE(part<QProgressBar>(*mWindow, "replayProgress")->text(), QStringLiteral("0 of 1 frames"));
        QCOMPARE(text("replayTime"), QStringLiteral("0.0 of 0.0 s"));
    }

    void aDamagedLineIsShownWithItsNumber()
    {
        openWindow();
        QByteArray lines("(1.0) a 123#\n");
        for (int i = 0; i < 7; ++i)
            lines += "(1.0) a 123#X\n";
        const QString path = fileWith(lines);
        load(path);
        QStringList expected;
        for (int line = 2; line <= 6; ++line)
            expected.append(
                QStringLiteral("%1:%2: the payload is not made of hexadecimal digits: 'X'").arg(path).arg(line));
        QCOMPARE(text("replayProblem").split(QLatin1Char('\n')),
                 expected + QStringList{QStringLiteral("and 2 more damaged lines")});
        QVERIFY(lastMessage(*mWindow).endsWith(expected.last()));
        QVERIFY(part<QPushButton>(*mWindow, "replayPlay")->isEnabled());
    }

    void aMissingFileIsShown()
    {
        openWindow();
        mWindow->replayPanel()->load(QStringLiteral("/nowhere/x.log"));
        QCOMPARE(text("replayProblem"), QStringLiteral("/nowhere/x.log: No such file or directory"));
        QVERIFY(lastMessage(*mWindow).endsWith(text("replayProblem")));
        QCOMPARE(text("replayFile"), QStringLiteral("no recording"));
        QVERIFY(!part<QPushButton>(*mWindow, "replayPlay")->isEnabled());
    }

    void anEmptyRecordingCannotBePlayed()
    {
        openWindow();
        load(fileWith(""));
        QVERIFY(text("replayFile").endsWith(QStringLiteral(": 0 frames, 0.0 s")));
        QVERIFY(!part<QPushButton>(*mWindow, "replayPlay")->isEnabled());
        QVERIFY(!part<QPushButton>(*mWindow, "replayShow")->isEnabled());
    }

    void nothingIsPlayedThroughAClosedAdapter()
    {
        openWindow();
        click(*mWindow, "disconnect");
        load(fileWith("(1.0) a 123#\n"));
        click(*mWindow, "replayPlay");
        QCOMPARE(text("replayProblem"), QStringLiteral("adapter 1 is not connected"));
        QCOMPARE(text("replayPlay"), QStringLiteral("&Play"));
    }

    void closingTheAdapterEndsTheReplayAloud()
    {
        openWindow();
        load(fileWith("(1.0) a 123#\n(60.0) a 124#\n"));
        click(*mWindow, "replayPlay");
        click(*mWindow, "disconnect");
        QCOMPARE(text("replayProblem"), QStringLiteral("the replay ended after 1 of 2 frames: the adapter was closed"));
        QVERIFY(!part<QPushButton>(*mWindow, "replayStop")->isEnabled());
    }

    void aRefusedFrameEndsTheReplayAloud()
    {
        mWindow = std::make_unique<DeskWindow>();
        auto adapter = std::make_unique<FakeAdapter>();
        adapter->onWrite = [](CAN::CanMessage *message) { return message->id == 0x124 ? CAN::RetError : CAN::RetOk; };
        QCOMPARE(mWindow->desk().add({std::move(adapter), {}, {}}, QString()), QString());
        mWindow->show();
        part<QTabWidget>(*mWindow, "pages")->setCurrentWidget(mWindow->replayPanel());
        click(*mWindow, "connect");
        load(fileWith("(1.0) a 123#\n\n(1.0) a 124#\n"));
        click(*mWindow, "replayPlay");
        QCOMPARE(text("replayProblem"),
                 QStringLiteral("the replay ended after 1 of 2 frames: the adapter refused the frame of line 3"));
        QVERIFY(lastMessage(*mWindow).endsWith(text("replayProblem")));
    }

private:
    void openWindow()
    {
        mWindow = std::make_unique<DeskWindow>();
        mWindow->show();
        part<QTabWidget>(*mWindow, "pages")->setCurrentWidget(mWindow->replayPanel());
        connectTwo(*mWindow);
    }

    void load(const QString &path)
    {
        mWindow->replayPanel()->load(path);
        QTRY_VERIFY_WITH_TIMEOUT(text("replayFile").startsWith(path), PatienceMs);
    }

    QString text(const char *name)
    {
        const auto *const widget = part<QWidget>(*mWindow, name);
        return widget->property("text").toString();
    }

    QStringList tracedBy(quint16 adapter)
    {
        const auto &trace = *mWindow->tracePanel()->model();
        QVector<CAN::CanMessage> messages;
        for (int i = 0; i < trace.rowCount(); ++i) {
            if (trace.frameAt(i).adapterId == adapter && !trace.frameAt(i).isTx)
                messages.append(trace.frameAt(i).message);
        }
        return asLines(messages);
    }

    std::unique_ptr<DeskWindow> mWindow;
};

QTEST_MAIN(TestDeskReplay)
#include "tst_desk_replay.moc"
