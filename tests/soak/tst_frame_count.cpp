// SPDX-License-Identifier: MIT
// That the soak sees what it says it does not find.
#include "soak/frame_count.h"

#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>

#include <QtTest/QtTest>

using Numbers = QVector<quint32>;

class TestFrameCount : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyFaultIsCounted_data()
    {
        QTest::addColumn<Numbers>("numbers");
        QTest::addColumn<Numbers>("counts");
        // received, lost, doubled, reordered, foreign
        QTest::newRow("all in order") << Numbers{0, 1, 2, 3} << Numbers{4, 0, 0, 0, 0};
        QTest::newRow("nothing") << Numbers{} << Numbers{0, 4, 0, 0, 0};
        QTest::newRow("first lost") << Numbers{1, 2, 3} << Numbers{3, 1, 0, 0, 0};
        QTest::newRow("last lost") << Numbers{0, 1, 2} << Numbers{3, 1, 0, 0, 0};
        QTest::newRow("doubled at once") << Numbers{0, 0, 1, 2, 3} << Numbers{5, 0, 1, 0, 0};
        QTest::newRow("doubled later") << Numbers{0, 1, 2, 3, 0} << Numbers{5, 0, 1, 0, 0};
        QTest::newRow("doubled in place of another") << Numbers{0, 1, 1, 3} << Numbers{4, 1, 1, 0, 0};
        QTest::newRow("two exchanged") << Numbers{0, 2, 1, 3} << Numbers{4, 0, 0, 1, 0};
        QTest::newRow("one never sent") << Numbers{0, 1, 2, 3, 4} << Numbers{5, 0, 0, 0, 1};
    }

    void everyFaultIsCounted()
    {
        QFETCH(Numbers, numbers);
        QFETCH(Numbers, counts);
        FrameCount count(QStringLiteral("receiver"), 4);
        for (const quint32 number : numbers)
            count.take(number);
        const FrameCount::Result result = count.result();
        QCOMPARE(Numbers({result.received, result.lost, result.doubled, result.reordered, result.foreign}), counts);
        QCOMPARE(result.isClean(), counts.mid(1) == Numbers(4, 0));
    }

    void frameThatIsNotAsSentIsForeign()
    {
        PXRDummyAdapter adapter;
        FrameCount count(QStringLiteral("receiver"), 2);
        count.listenTo(adapter, false);
        CAN::CanMessage damaged = numberedFrame(1);
        damaged.data[7] ^= 1;
        for (CAN::CanMessage message : {numberedFrame(0), damaged}) {
            PxrFdTypes::UnionPacket packet;
            packet.stcCanMsg = adapter.convertCanMessage(message);
            adapter.onCanMessageReceived({packet});
        }
        PxrFdTypes::UnionPacket echo;
        echo.stcCanMsg = adapter.convertCanMessage(numberedFrame(1));
        echo.stcCanMsg.frameFlags2 = 0x80;
        adapter.onCanMessageReceived({echo});
        QCOMPARE(count.result().received, 3U);
        QCOMPARE(count.result().lost, 1U);
        QCOMPARE(count.result().foreign, 2U);
    }

    void waitLastsAsLongAsFramesCome()
    {
        quint64 received = 0;
        const auto oneMore = [&] { return ++received; };
        QVERIFY(waitWhileFramesCome([&] { return received >= 10; }, oneMore, 1));
    }

    void waitIsGivenUpWhenNoFrameComes()
    {
        quint64 asked = 0;
        const auto threeAtMost = [&] { return std::min<quint64>(++asked, 3); };
        QVERIFY(!waitWhileFramesCome([] { return false; }, threeAtMost, 1));
        QCOMPARE(asked, quint64(4));
    }
};

QTEST_GUILESS_MAIN(TestFrameCount)
#include "tst_frame_count.moc"
