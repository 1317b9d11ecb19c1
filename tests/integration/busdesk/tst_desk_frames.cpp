// SPDX-License-Identifier: MIT
#include "busdesk/adapter_desk.h"
#include "busdesk/frame_texts.h"
#include "busdesk/identifier_model.h"
#include "busdesk/payload_delegate.h"
#include "busdesk/trace_model.h"
#include "busdesk/trace_panel.h"
#include "desk_user.h"
#include "support/file_content.h"
#include "support/file_size_limit.h"
#include "support/frame_recorder.h"

#include <QtGui/QClipboard>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QTableView>
#include <QtWidgets/QToolButton>

#include <algorithm>
#include <memory>

using buslink::IdentifierModel;
using buslink::TraceFilter;
using buslink::TraceModel;

namespace {

using Frames = std::vector<CAN::CanRxMessage>;

CAN::CanRxMessage received(quint32 id, const char *payload = "", quint16 adapter = 1, qint64 timeUs = 0)
{
    CAN::CanRxMessage frame;
    frame.message = makeFrame(id, QByteArray::fromHex(payload));
    frame.adapterId = adapter;
    frame.timeStamp.seconds = static_cast<qint32>(timeUs / 1000000);
    frame.timeStamp.microseconds = static_cast<qint32>(timeUs % 1000000);
    return frame;
}

Frames numbered(quint32 first, quint32 last)
{
    Frames frames;
    for (quint32 id = first; id <= last; ++id)
        frames.push_back(received(id));
    return frames;
}

QList<quint32> shownIds(const TraceModel &model)
{
    QList<quint32> ids;
    for (int i = 0; i < model.rowCount(); ++i)
        ids.append(model.frameAt(i).message.id);
    return ids;
}

// Follows a model's announcements and complains where they do not fit what it holds.
struct RowCount
{
    explicit RowCount(const QAbstractItemModel &model) : count(model.rowCount())
    {
        QObject::connect(&model, &QAbstractItemModel::rowsInserted, &model,
                         [this](const QModelIndex &, int first, int last) {
                             fits = fits && first == count;
                             count += last - first + 1;
                         });
        QObject::connect(&model, &QAbstractItemModel::rowsRemoved, &model,
                         [this](const QModelIndex &, int first, int last) {
                             fits = fits && first == 0;
                             count -= last - first + 1;
                         });
    }

    int count;
    bool fits = true;
};

} // namespace

class TestDeskFrames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aTraceShowsAFrameAsItIs_data()
    {
        QTest::addColumn<CAN::CanRxMessage>("frame");
        QTest::addColumn<QStringList>("texts");
        const auto strings = [](std::initializer_list<const char *> list) {
            QStringList texts;
            for (const char *const text : list)
                texts.append(QString::fromLatin1(text));
            return texts;
        };
        QTest::newRow("classic") << received(0x12, "0AFF", 3, 1500000)
                                 << strings({"1.500000", "3", "Rx", "012", "classic", "2", "0A FF"});
        CAN::CanRxMessage frame = received(0x12, "", 3, 7);
        frame.message.isExtended = true;
        frame.message.isRtr = true;
        frame.message.length = 4;
        QTest::newRow("extended remote") << frame << strings({"0.000007", "3", "Rx", "00000012", "remote", "4", ""});
        frame = received(0x7FF, "01", 1);
        frame.isTx = true;
        frame.message.isFd = frame.message.isBrs = frame.message.isEsi = true;
        QTest::newRow("sent FD") << frame << strings({"0.000000", "1", "Tx", "7FF", "FD BRS ESI", "1", "01"});
        frame = received(1);
        frame.message.length = 200;
        frame.message.isRtr = true;
        QTest::newRow("length beyond the record")
            << frame << strings({"0.000000", "1", "Rx", "001", "remote", "200", ""});
    }

    void aTraceShowsAFrameAsItIs()
    {
        QFETCH(CAN::CanRxMessage, frame);
        TraceModel model;
        model.append({frame});
        QTEST(row(model, 0), "texts");
    }

    void theOldestFramesGoWhenTheTraceIsFull()
    {
        TraceModel model(100);
        const RowCount rows(model);
        model.append(numbered(1, 100));
        model.append(numbered(101, 101));
        QCOMPARE(model.rowCount(), 91);
        QCOMPARE(shownIds(model).first(), 11U);
        QCOMPARE(shownIds(model).last(), 101U);
        model.append(numbered(1000, 1249));
        QCOMPARE(model.rowCount(), 100);
        QCOMPARE(shownIds(model).first(), 1150U);
        QCOMPARE(shownIds(model).last(), 1249U);
        QCOMPARE(rows.count, 100);
        QVERIFY(rows.fits);
    }

    void aFilteredTraceDropsItsOldestFramesToo()
    {
        TraceModel model(100);
        model.setFilter({{{10, 12}, {105, 105}}, 0});
        const RowCount rows(model);
        model.append(numbered(1, 100));
        QCOMPARE(shownIds(model), (QList<quint32>{10, 11, 12}));
        model.append(numbered(101, 105));
        QCOMPARE(shownIds(model), (QList<quint32>{11, 12, 105}));
        QCOMPARE(rows.count, 3);
        QVERIFY(rows.fits);
        model.setFilter({});
        QCOMPARE(model.rowCount(), 95);
    }

    void aFilterLooksAtIdentifiersAndAdapters_data()
    {
        QTest::addColumn<quint32>("id");
        QTest::addColumn<int>("adapter");
        QTest::addColumn<bool>("passes");
        QTest::newRow("first of a range") << 0x100U << 2 << true;
        QTest::newRow("last of a range") << 0x1FFU << 2 << true;
        QTest::newRow("below") << 0xFFU << 2 << false;
        QTest::newRow("between") << 0x200U << 2 << false;
        QTest::newRow("single") << 0x300U << 2 << true;
        QTest::newRow("above all") << 0x301U << 2 << false;
        QTest::newRow("another adapter") << 0x100U << 1 << false;
    }

    void aFilterLooksAtIdentifiersAndAdapters()
    {
        QFETCH(quint32, id);
        QFETCH(int, adapter);
        const TraceFilter filter{{{0x100, 0x1FF}, {0x300, 0x300}}, 2};
        QTEST(filter.passes(received(id, "", static_cast<quint16>(adapter))), "passes");
    }

    void whatComesInAPauseIsAddedAfterIt()
    {
        TraceModel model(10);
        model.append(numbered(1, 2));
        model.setPaused(true);
        model.append(numbered(3, 4));
        QCOMPARE(model.rowCount(), 2);
        QCOMPARE(model.waiting(), std::size_t(2));
        model.setPaused(false);
        QCOMPARE(shownIds(model), (QList<quint32>{1, 2, 3, 4}));
        QCOMPARE(model.waiting(), std::size_t(0));

        model.setPaused(true);
        model.append(numbered(5, 30));
        QCOMPARE(model.waiting(), std::size_t(10));
        model.setPaused(false);
        QCOMPARE(shownIds(model).first(), 21U);
        QCOMPARE(model.rowCount(), 10);
    }

    void aMillionFramesAreKept()
    {
        TraceModel model;
        const Frames batch(10000, received(5, "0102"));
        for (int i = 0; i < 100; ++i)
            model.append(batch);
        QCOMPARE(model.rowCount(), 1000000);
        model.append(batch);
        QVERIFY(model.rowCount() <= 1000000 && model.rowCount() >= 900000);
    }

    // At 10,000 frames a second 500 come in at a time, twenty times a second; now and then the oldest tenth goes.
    void aFullTraceTakesABusyBusInItsStride()
    {
        const auto desk = makeDesk();
        buslink::TracePanel panel(desk.get());
        panel.resize(1000, 500);
        panel.show();
        panel.append(Frames(1000000, received(5, "0102030405060708")));
        const Frames batch(500, received(6, "0102030405060708"));
        QVector<qint64> times;
        for (int i = 0; i < 250; ++i) {
            QElapsedTimer time;
            time.start();
            panel.append(batch);
            QCoreApplication::processEvents();
            times.append(time.nsecsElapsed() / 1000);
        }
        std::sort(times.begin(), times.end());
        qInfo("a batch of 500 takes %lld us at the median, %lld us at worst", times.at(125), times.last());
        QVERIFY(times.last() < 5000000);
        QVERIFY(panel.model()->size() > 900000);
    }

    void theFilterIsWrittenAndChosen()
    {
        const auto desk = makeDesk();
        buslink::TracePanel panel(desk.get());
        Frames frames = numbered(0x100, 0x103);
        frames.push_back(received(0x101, "", 2));
        panel.append(frames);
        auto *const ids = part<QLineEdit>(panel, "traceIds");
        QTest::keyClicks(ids, QStringLiteral("101, 103-1FF"));
        QCOMPARE(shownIds(*panel.model()), (QList<quint32>{0x101, 0x103, 0x101}));
        part<QComboBox>(panel, "traceAdapter")->setCurrentText(QStringLiteral("adapter 1"));
        QCOMPARE(shownIds(*panel.model()), (QList<quint32>{0x101, 0x103}));
        QCOMPARE(part<QLabel>(panel, "traceCount")->text(), QStringLiteral("2 of 5 frames"));

        ids->setText(QStringLiteral("no number"));
        QCOMPARE(shownIds(*panel.model()), (QList<quint32>{0x101, 0x103}));
        QVERIFY(ids->styleSheet().contains(QStringLiteral("color")));
        ids->setText(QStringLiteral("0-1FFFFFFF"));
        QCOMPARE(panel.model()->rowCount(), 4);
        // The fading of the field's button belongs to nobody until it is over.
        const QToolButton *const clear = ids->findChild<QToolButton *>();
        QTRY_COMPARE_WITH_TIMEOUT(clear->property("opacity").toReal(), 1.0, PatienceMs);
        ids->clear();
        QVERIFY(ids->styleSheet().isEmpty());
        QCOMPARE(panel.model()->rowCount(), 4);
        QTRY_COMPARE_WITH_TIMEOUT(clear->property("opacity").toReal(), 0.0, PatienceMs);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    void thePauseButtonHoldsTheTrace()
    {
        const auto desk = makeDesk();
        buslink::TracePanel panel(desk.get());
        click(panel, "pause");
        panel.append(numbered(1, 3));
        QCOMPARE(part<QLabel>(panel, "traceCount")->text(), QStringLiteral("0 of 0 frames, 3 waiting"));
        click(panel, "pause");
        QCOMPARE(part<QLabel>(panel, "traceCount")->text(), QStringLiteral("3 of 3 frames"));
        click(panel, "clearTrace");
        QCOMPARE(part<QLabel>(panel, "traceCount")->text(), QStringLiteral("0 of 0 frames"));
    }

    void framesAreCopiedAndSavedAsARecording()
    {
        const auto desk = makeDesk();
        buslink::TracePanel panel(desk.get());
        panel.append({received(0x123, "1122", 1, 12500000), received(0x80, "", 2, 12600000)});
        part<QTableView>(panel, "trace")->selectAll();
        click(panel, "copyTrace");
        const QString lines = QStringLiteral("(12.500000) adapter1 123#1122\n(12.600000) adapter2 080#\n");
        QCOMPARE(QGuiApplication::clipboard()->text(), lines);

        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("trace.log"));
        QCOMPARE(panel.saveTo(path), QString());
        QCOMPARE(QString::fromLatin1(contentOf(path)), lines);
        QVERIFY(!panel.saveTo(folder.filePath(QStringLiteral("none/trace.log"))).isEmpty());
    }

    void aTraceWithoutRoomLeavesTheOldRecording_data()
    {
        QTest::addColumn<quint32>("frames");
        QTest::newRow("less than is written at once") << 100U;
        QTest::newRow("more") << 5000U;
    }

    void aTraceWithoutRoomLeavesTheOldRecording()
    {
        QFETCH(quint32, frames);
        const auto desk = makeDesk();
        buslink::TracePanel panel(desk.get());
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("trace.log"));
        panel.append(numbered(0x10, 0x10));
        QCOMPARE(panel.saveTo(path), QString());
        const QByteArray before = contentOf(path);
        panel.append(numbered(1, frames));
        QString error;
        {
            const FileSizeLimit limit(1024);
            error = panel.saveTo(path);
        }
        QCOMPARE(error, path + QStringLiteral(": File too large"));
        QCOMPARE(contentOf(path), before);
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{QStringLiteral("trace.log")});
    }

    void identifiersAreCountedWithTheirPeriodAndLastPayload()
    {
        IdentifierModel model;
        model.append({received(0x200, "00", 1, 1000), received(0x100, "0102", 1, 2000)});
        QCOMPARE(row(model, 0).mid(2), (QStringList{QStringLiteral("100"), QStringLiteral("classic"),
                                                    QStringLiteral("1"), QString(), QStringLiteral("01 02")}));
        model.append({received(0x100, "0103", 1, 12500), received(0x100, "0104", 2, 13000)});
        QCOMPARE(model.rowCount(), 3);
        QCOMPARE(row(model, 0), (QStringList{QStringLiteral("1"), QStringLiteral("Rx"), QStringLiteral("100"),
                                             QStringLiteral("classic"), QStringLiteral("2"), QStringLiteral("10.500"),
                                             QStringLiteral("01 03")}));
        QCOMPARE(row(model, 2).first(), QStringLiteral("2"));
        model.clear();
        QCOMPARE(model.rowCount(), 0);
    }

    void aStampThatFallsBackGivesNoPeriod()
    {
        IdentifierModel model;
        model.append({received(0x100, "", 1, 5000), received(0x100, "", 1, 1000)});
        QCOMPARE(row(model, 0).at(IdentifierModel::Period), QString());
    }

    void changedBytesAreKnown_data()
    {
        QTest::addColumn<QByteArray>("before");
        QTest::addColumn<QByteArray>("now");
        QTest::addColumn<quint64>("changed");
        QTest::newRow("none") << QByteArray("010203") << QByteArray("010203") << quint64(0);
        QTest::newRow("first and last") << QByteArray("010203") << QByteArray("000204") << quint64(0b101);
        QTest::newRow("longer") << QByteArray("01") << QByteArray("010000") << quint64(0b110);
        QTest::newRow("shorter") << QByteArray("010203") << QByteArray("01") << quint64(0);
    }

    void changedBytesAreKnown()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, now);
        IdentifierModel model;
        model.append({received(1, before.constData()), received(1, now.constData())});
        QTEST(model.index(0, 0).data(IdentifierModel::ChangedBytesRole).toULongLong(), "changed");
    }

    void changedBytesAreMarkedWhereTheyStand()
    {
        QTableView table;
        IdentifierModel model;
        table.setModel(&model);
        table.setItemDelegateForColumn(IdentifierModel::Payload, new buslink::PayloadDelegate(&table));
        table.resize(900, 100);
        model.append({received(1, "0102"), received(1, "0102")});
        const QImage unmarked = table.grab().toImage();
        model.append({received(1, "0102")});
        const QImage same = table.grab().toImage().copy(table.visualRect(model.index(0, IdentifierModel::Payload)));
        QVERIFY(!hasMark(unmarked) && !hasMark(same));
        model.append({received(1, "0103")});
        QVERIFY(hasMark(table.grab().toImage()));
    }

private:
    static std::unique_ptr<buslink::AdapterDesk> makeDesk()
    {
        auto desk = std::make_unique<buslink::AdapterDesk>();
        addVirtual(*desk, 40000, QStringLiteral("a"));
        addVirtual(*desk, 40001, QStringLiteral("b"));
        return desk;
    }

    static bool hasMark(const QImage &image)
    {
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                if (image.pixelColor(x, y) == QColor(0xFF, 0xCC, 0x80))
                    return true;
            }
        }
        return false;
    }
};

QTEST_MAIN(TestDeskFrames)
#include "tst_desk_frames.moc"
