// SPDX-License-Identifier: MIT
#include "desk_on_screen.h"
#include "integration/example_programs.h"
#include "support/file_content.h"

#include <QtGui/QImage>

#include <memory>
#include <set>

namespace {

QByteArray hex(int value, int digits)
{
    return QByteArray::number(value, 16).toUpper().rightJustified(digits, '0');
}

// What a small machine might say: a drive that speeds up and slows down, a joint, a camera's CAN FD block.
QByteArray machineLog(int ms)
{
    QByteArray log;
    const auto add = [&log](int at, const QByteArray &frame) {
        log += '(' + QByteArray::number(at / 1e3, 'f', 6) + ") can0 " + frame + '\n';
    };
    for (int at = 0; at < ms; at += 10) {
        const int pace = at / 10;
        const int speed = 1500 + pace % 900 * (pace / 900 % 2 == 0 ? 1 : -1) + (pace / 900 % 2 == 0 ? 0 : 900);
        add(at, "0C0#" + hex(speed, 4) + "0AF0" + hex(pace & 0xFF, 2));
        if (pace % 2 == 0)
            add(at, "18FEF100##1A0" + hex(speed / 8, 4) + hex(pace & 0xFF, 2) + "00007D5A40FFFFC3");
        if (pace % 5 == 0)
            add(at, "181#" + hex(40000 - speed, 6) + "40");
        if (pace % 10 == 0)
            add(at, "701#05");
        if (pace % 50 == 0)
            add(at, "182#R2");
    }
    return log;
}

} // namespace

class TestDeskWindow : public QObject, ExamplePrograms
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        const QString missing = DeskOnScreen::missing();
        if (!missing.isEmpty())
            QSKIP(qPrintable(QStringLiteral("not installed: ") + missing));
    }

    void init()
    {
        mPort = freeUdpPort();
        do {
            mOtherPort = freeUdpPort();
        } while (mOtherPort == mPort);
        const QString set = mFolder.filePath(QStringLiteral("%1.json").arg(mPort));
        const auto change = [&set](const QStringList &command) {
            run(bussets, QStringList{QStringLiteral("--file"), set} + command);
        };
        change(
            {QStringLiteral("--adapter"), virtualBus(mPort), QStringLiteral("add"), QStringLiteral("drive and joint")});
        change({QStringLiteral("--adapter"), virtualBus(mOtherPort), QStringLiteral("add"), QStringLiteral("sensors")});
        change({QStringLiteral("active"), QStringLiteral("2")});
        mDesk = std::make_unique<DeskOnScreen>(QStringList{set});
        QVERIFY(mDesk->lookFor(QStringLiteral("Bus desk")));
    }

    void cleanup() { mDesk.reset(); }

    void whatAnotherProgramPlaysIsSavedAndCopiedFromTheTrace()
    {
        connectAll();
        const QByteArray log = machineLog(1000);
        run(busplay, {QStringLiteral("--adapter"), virtualBus(mPort), writeFile(log)});
        QByteArray saved;
        QList<QByteArray> frames;
        for (int i = 0; i < 5 && frames.size() < framesOf(log).size(); ++i) {
            saved = saveTrace();
            frames = framesOf(saved);
        }
        QCOMPARE(frames, framesOf(log));
        QCOMPARE(saved.count(" adapter1 "), frames.size());

        // Into the middle of the trace, which shows its end.
        mDesk->clickAt(400, 780);
        mDesk->press({QStringLiteral("ctrl+c")});
        QByteArray copied;
        QTRY_VERIFY_WITH_TIMEOUT(!(copied = mDesk->clipboard()).isEmpty(), PatienceMs);
        QVERIFY2(copied.endsWith('\n') && copied.count('\n') == 1, copied.constData());
        QVERIFY(saved.contains(copied));
    }

    void aFrameIsSentByTheKeyboardAlone()
    {
        connectAll();
        Program dump(busdump,
                     {QStringLiteral("--adapter"), virtualBus(mPort), QStringLiteral("--count"), QStringLiteral("1")});
        dump.start();
        QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(mPort), 2, PatienceMs);
        mDesk->press({QStringLiteral("alt+n"), QStringLiteral("ctrl+a")});
        mDesk->type(QStringLiteral("1ABCDEF0#C0FFEE"));
        mDesk->press({QStringLiteral("Return")});
        QCOMPARE(dump.waitForStatus(), 0);
        QCOMPARE(framesOf(dump.output()), QList<QByteArray>{"1ABCDEF0#C0FFEE"});
    }

    // With BUSDESK_PICTURE in the environment the buses run for a minute before, and the picture is kept there.
    void theWindowIsPhotographedAtWork()
    {
        const QString kept = qEnvironmentVariable("BUSDESK_PICTURE");
        connectAll();
        Program drive(busplay, {QStringLiteral("--adapter"), virtualBus(mPort), writeFile(machineLog(90000))});
        Program sensors(buscycle, {QStringLiteral("--adapter"), virtualBus(mOtherPort), QStringLiteral("--interval"),
                                   QStringLiteral("15"), QStringLiteral("--sync-max"), QStringLiteral("240"),
                                   QStringLiteral("1A0#00")});
        drive.start();
        sensors.start();
        if (!kept.isEmpty())
            QTest::qWait(60000);
        QImage image;
        QTRY_VERIFY_WITH_TIMEOUT(image.loadFromData(mDesk->photograph()) && isAtWork(image), PatienceMs);
        QCOMPARE(image.size(), QSize(1280, 900));
        QVERIFY(kept.isEmpty() || image.save(kept));
    }

    void theKeyboardEndsTheProgram()
    {
        connectAll();
        mDesk->press({QStringLiteral("ctrl+q")});
        QCOMPARE(mDesk->waitForEnd(), 0);
        QCOMPARE(udpSocketsOnPort(mPort), 0);
    }

    void helpAndVersionNeedNoScreen_data()
    {
        QTest::addColumn<QString>("argument");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("beginning");
        QTest::addColumn<QByteArray>("errors");
        QTest::newRow("help") << QStringLiteral("--help") << 0 << QByteArray("Usage: ") << QByteArray();
        QTest::newRow("version") << QStringLiteral("--version") << 0 << QByteArray("busdesk ") << QByteArray();
        QTest::newRow("no such help") << QStringLiteral("--help-all") << 2 << QByteArray()
                                      << QByteArray("busdesk: Unknown option 'help-all'.\n");
    }

    void helpAndVersionNeedNoScreen()
    {
        QFETCH(QString, argument);
        QFETCH(int, status);
        QFETCH(QByteArray, beginning);
        Program desk(QStringLiteral(BUSDESK_PROGRAM), {argument});
        QProcessEnvironment environment = desk.process().processEnvironment();
        environment.insert(QStringLiteral("DISPLAY"), QStringLiteral(":nowhere"));
        environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        desk.process().setProcessEnvironment(environment);
        desk.start();
        QCOMPARE(desk.waitForStatus(), status);
        QVERIFY(desk.output().startsWith(beginning));
        QTEST(desk.errors(), "errors");
    }

private:
    static void run(const QString &path, const QStringList &arguments)
    {
        Program program(path, arguments);
        program.start();
        QCOMPARE(program.waitForStatus(), 0);
    }

    void connectAll()
    {
        mDesk->press({QStringLiteral("alt+c")});
        QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(mPort), 1, PatienceMs);
        QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(mOtherPort), 1, PatienceMs);
    }

    QByteArray saveTrace()
    {
        const QString path = mFolder.filePath(QStringLiteral("saved%1.log").arg(++mSaved));
        const QString title = QStringLiteral("Save the trace");
        mDesk->press({QStringLiteral("alt+v")});
        if (!mDesk->lookFor(title))
            return {};
        mDesk->press({QStringLiteral("ctrl+a")});
        mDesk->type(path);
        // The list of names that the dialog proposes may take a Return for itself.
        bool written = false;
        for (int i = 0; i < 5 && !written; ++i) {
            mDesk->press({QStringLiteral("Return")});
            written = QTest::qWaitFor([&path] { return QFile::exists(path); }, 4000);
        }
        if (!written || !mDesk->isGone(title) || !mDesk->lookFor(QStringLiteral("Bus desk")))
            return {};
        return contentOf(path);
    }

    // The lamp, marked bytes and the lines of the plots are there.
    static bool isAtWork(const QImage &image)
    {
        std::set<QRgb> colors;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x)
                colors.insert(image.pixel(x, y) & 0xFFFFFFU);
        }
        return colors.size() > 50 && colors.count(0x2E7D32) > 0 && colors.count(0xFFCC80) > 0
               && colors.count(0xEF6C00) > 0 && colors.count(0x1565C0) > 0;
    }

    QTemporaryDir mFolder;
    quint16 mPort = 0;
    quint16 mOtherPort = 0;
    int mSaved = 0;
    std::unique_ptr<DeskOnScreen> mDesk;
};

QTEST_GUILESS_MAIN(TestDeskWindow)
#include "tst_desk_window.moc"
