// SPDX-License-Identifier: MIT
#include "busdesk/desk_window.h"
#include "busdesk/send_job.h"
#include "busdesk/send_panel.h"
#include "busdesk/trace_model.h"
#include "busdesk/trace_panel.h"
#include "desk_user.h"
#include "support/fake_adapter.h"
#include "support/frame_recorder.h"
#include "support/free_port.h"

#include <QtWidgets/QComboBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QTabWidget>
#include <QtWidgets/QTableView>

#include <memory>

using buslink::DeskWindow;
using buslink::SendJob;

class TestDeskSending : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aJobSendsItsCountAndEnds()
    {
        FakeAdapter adapter;
        SendJob job;
        QStringList ends;
        connect(&job, &SendJob::ended, &job, [&](const QString &error) { ends.append(error); });
        job.start(&adapter, {makeFrame(0x123, QByteArray::fromHex("1122")), 1, 3});
        QCOMPARE(job.adapter(), static_cast<AbstractCanAdapter *>(&adapter));
        QTRY_COMPARE_WITH_TIMEOUT(ends, QStringList{QString()}, PatienceMs);
        QCOMPARE(adapter.written().size(), 3);
        QCOMPARE(adapter.written().constFirst().id, 0x123U);
        QCOMPARE(job.sentFrames(), quint64(3));
        QVERIFY(!job.isRunning());
    }

    void aRefusedFrameEndsAJobAloud()
    {
        FakeAdapter adapter;
        adapter.onWrite = [](CAN::CanMessage *) { return CAN::RetError; };
        SendJob job;
        QStringList ends;
        connect(&job, &SendJob::ended, &job, [&](const QString &error) { ends.append(error); });
        job.start(&adapter, {CAN::CanMessage(), 1, 0});
        QTRY_COMPARE_WITH_TIMEOUT(ends, QStringList{QStringLiteral("the adapter refused the frame")}, PatienceMs);
        QCOMPARE(job.sentFrames(), quint64(0));
    }

    void aFrameThatFoundNoRoomIsNotCountedAsSent()
    {
        FakeAdapter adapter;
        adapter.onWrite = [](CAN::CanMessage *) { return CAN::RetTxBufferFull; };
        SendJob job;
        int ends = 0;
        connect(&job, &SendJob::ended, &job, [&] { ++ends; });
        job.start(&adapter, {CAN::CanMessage(), 1, 2});
        QTRY_COMPARE_WITH_TIMEOUT(ends, 1, PatienceMs);
        QCOMPARE(job.sentFrames(), quint64(0));
    }

    // The pause is longer than the test may last.
    void aStoppedJobNeverTouchesItsAdapterAgain()
    {
        auto adapter = std::make_unique<FakeAdapter>();
        SendJob job;
        job.start(adapter.get(), {CAN::CanMessage(), 1500, 0});
        QTRY_COMPARE_WITH_TIMEOUT(adapter->written().size(), 1, PatienceMs);
        QElapsedTimer time;
        time.start();
        job.stop();
        QVERIFY2(time.elapsed() < 1000, "stopping waited for the pause");
        adapter.reset();
        QVERIFY(!job.isRunning());
        QCOMPARE(job.adapter(), nullptr);
        QCOMPARE(job.sentFrames(), quint64(1));
    }

    void aJobIsStartedAnewWhileTheOneBeforeEndsItsPause()
    {
        FakeAdapter adapter;
        SendJob job;
        job.start(&adapter, {makeFrame(1, {}), 1500, 0});
        QTRY_COMPARE_WITH_TIMEOUT(adapter.written().size(), 1, PatienceMs);
        job.start(&adapter, {makeFrame(2, {}), 1, 2});
        QTRY_COMPARE_WITH_TIMEOUT(adapter.written().size(), 3, PatienceMs);
        QCOMPARE(adapter.written().constLast().id, 2U);
        QTRY_VERIFY_WITH_TIMEOUT(!job.isRunning(), PatienceMs);
    }

    void aFrameThatIsSentOnceIsSeenOnBothSides()
    {
        openWindow();
        auto *const frame = part<QLineEdit>(*mWindow, "sendFrame");
        frame->setText(QStringLiteral("1ABCDEF0#0102"));
        QTest::keyClick(frame, Qt::Key_Return);
        QTRY_COMPARE_WITH_TIMEOUT(trace().rowCount(), 2, PatienceMs);
        QStringList seen{ways(0), ways(1)};
        seen.sort();
        QCOMPARE(seen, (QStringList{QStringLiteral("1 Tx 1ABCDEF0 01 02"), QStringLiteral("2 Rx 1ABCDEF0 01 02")}));
        QCOMPARE(part<QLabel>(*mWindow, "sendSent")->text(), QStringLiteral("1 sent"));
        QTRY_COMPARE_WITH_TIMEOUT(part<QTableView>(*mWindow, "identifiers")->model()->rowCount(), 2, PatienceMs);
    }

    void aFrameThatCannotBeReadIsNotSent()
    {
        openWindow();
        part<QLineEdit>(*mWindow, "sendFrame")->setText(QStringLiteral("nonsense"));
        click(*mWindow, "sendOnce");
        QVERIFY(lastMessage(*mWindow).contains(QStringLiteral("'nonsense' cannot be sent")));
        click(*mWindow, "sendStart");
        QVERIFY(!part<QPushButton>(*mWindow, "sendStart")->isChecked());
        QCOMPARE(part<QLabel>(*mWindow, "sendSent")->text(), QStringLiteral("0 sent"));
    }

    void nothingIsSentThroughAClosedAdapter()
    {
        mWindow = std::make_unique<DeskWindow>();
        mWindow->show();
        part<QTabWidget>(*mWindow, "pages")->setCurrentIndex(1);
        click(*mWindow, "sendOnce");
        QVERIFY(lastMessage(*mWindow).endsWith(QStringLiteral("there is no adapter to send")));
        QCOMPARE(addVirtual(mWindow->desk(), freeUdpPort()), QString());
        click(*mWindow, "sendStart");
        QVERIFY(lastMessage(*mWindow).endsWith(QStringLiteral("adapter 1 is not connected")));
        QVERIFY(!part<QPushButton>(*mWindow, "sendStart")->isChecked());
    }

    void aCyclicFrameRunsUntilItsAdapterIsClosed()
    {
        openWindow();
        part<QSpinBox>(*mWindow, "sendInterval")->setValue(1);
        click(*mWindow, "sendStart");
        QCOMPARE(part<QPushButton>(*mWindow, "sendStart")->text(), QStringLiteral("Stop"));
        QVERIFY(part<QLineEdit>(*mWindow, "sendFrame")->isReadOnly());
        QTRY_VERIFY_WITH_TIMEOUT(trace().rowCount() > 20, PatienceMs);
        click(*mWindow, "disconnect");
        QCOMPARE(part<QPushButton>(*mWindow, "sendStart")->text(), QStringLiteral("Start"));
        QVERIFY(!part<QLineEdit>(*mWindow, "sendFrame")->isReadOnly());
        QTRY_VERIFY_WITH_TIMEOUT(!mWindow->desk().isConnected(), PatienceMs);
    }

    void aCyclicFrameEndsWhenItsAdapterIsRemoved()
    {
        openWindow();
        part<QSpinBox>(*mWindow, "sendInterval")->setValue(2);
        click(*mWindow, "sendStart");
        QTRY_VERIFY_WITH_TIMEOUT(trace().rowCount() > 2, PatienceMs);
        part<QTableView>(*mWindow, "adapters")->selectRow(0);
        click(*mWindow, "remove");
        QVERIFY(!part<QPushButton>(*mWindow, "sendStart")->isChecked());
    }

    void rowsAreAddedAndRemoved()
    {
        openWindow();
        click(*mWindow, "addFrame");
        auto rows = mWindow->findChildren<buslink::SendRow *>();
        QCOMPARE(rows.size(), 2);
        part<QComboBox>(*rows.at(1), "sendAdapter")->setCurrentText(QStringLiteral("adapter 2"));
        part<QLineEdit>(*rows.at(1), "sendFrame")->setText(QStringLiteral("555#"));
        part<QSpinBox>(*rows.at(1), "sendCount")->setValue(2);
        part<QSpinBox>(*rows.at(1), "sendInterval")->setValue(1);
        QTRY_VERIFY(part<QPushButton>(*rows.at(1), "sendStart")->isVisible());
        part<QPushButton>(*rows.at(1), "sendStart")->click();
        QTRY_COMPARE_WITH_TIMEOUT(part<QLabel>(*rows.at(1), "sendSent")->text(), QStringLiteral("2 sent"), PatienceMs);
        QTRY_COMPARE_WITH_TIMEOUT(part<QPushButton>(*rows.at(1), "sendStart")->text(), QStringLiteral("Start"),
                                  PatienceMs);
        part<QPushButton>(*rows.at(1), "sendRemove")->click();
        QTRY_COMPARE(mWindow->findChildren<buslink::SendRow *>().size(), 1);
    }

    void cleanup() { mWindow.reset(); }

private:
    void openWindow()
    {
        mWindow = std::make_unique<DeskWindow>();
        mWindow->show();
        part<QTabWidget>(*mWindow, "pages")->setCurrentIndex(1);
        connectTwo(*mWindow);
    }

    const buslink::TraceModel &trace() { return *mWindow->tracePanel()->model(); }

    QString ways(int number)
    {
        const QStringList texts = row(trace(), number);
        return QStringList{texts.at(1), texts.at(2), texts.at(3), texts.at(6)}.join(QLatin1Char(' '));
    }

    std::unique_ptr<DeskWindow> mWindow;
};

QTEST_MAIN(TestDeskSending)
#include "tst_desk_sending.moc"
