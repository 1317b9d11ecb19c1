// SPDX-License-Identifier: MIT
// The example programs as processes at a real driver (ftdi_sio) with an emulated device: ttyUSB0 is theirs, and what
// goes over it comes out of ttyUSB1, which is the simulated device's.
#include "integration/serial/live_usb_adapter.h"

#include "support/program.h"
#include "support/simulated_usb_device.h"
#include "usb_far_end.h"

#include <QtCore/QRegularExpression>

#include <csignal>

namespace {

const QString busdump = QStringLiteral(BUSDUMP_PROGRAM);
const QString busplay = QStringLiteral(BUSPLAY_PROGRAM);
const QString buscycle = QStringLiteral(BUSCYCLE_PROGRAM);

/// What the adapter logs as it is opened: its look at the port, then the port's own success.
const QByteArray recordsOfTheLibrary = "false virtual CAN::RetType serialPortAdapter::open()\nNoError\n";

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

} // namespace

class TestUsbPrograms : public QObject
{
    Q_OBJECT

private:
    int mFarEnd = -1;
    std::unique_ptr<SimulatedUsbDevice> mDevice;
    int mStatus = 0;

    /// Runs a program to its end, with a call to make meanwhile. An emulated machine may need more than the half second
    /// that an adapter gives its port, so a program that gave up for that is started again.
    template <typename Call>
    std::unique_ptr<Program> ended(const QString &path, const QStringList &arguments, Call meanwhile)
    {
        for (int attempt = 1;; ++attempt) {
            mDevice->forgetReceived();
            auto program = std::make_unique<Program>(path, arguments);
            program->start();
            meanwhile(*program);
            mStatus = program->waitForStatus();
            if (attempt == 20 || !program->errors().endsWith(": the adapter could not be opened\n"))
                return program;
        }
    }

private Q_SLOTS:
    void init()
    {
        mFarEnd = openFarEnd();
        ::tcflush(mFarEnd, TCIOFLUSH);
        mDevice = std::make_unique<SimulatedUsbDevice>(mFarEnd);
    }

    void cleanup()
    {
        mDevice.reset();
        ::close(mFarEnd);
    }

    void portsAreListed()
    {
        Program list(busdump, words("--list"));
        list.start();
        QCOMPARE(list.waitForStatus(), 0);
        const QString text = QString::fromUtf8(list.output());
        for (const char *line : {"^usb:ttyUSB0 +zorbek USB$", "^usb:ttyUSB1 +zorbek USB$"}) {
            const QRegularExpression form(QLatin1String(line), QRegularExpression::MultilineOption);
            QVERIFY2(form.match(text).hasMatch(), qPrintable(text));
        }
    }

    void receivedFramesArePrinted()
    {
        // Again and again, since what comes before the port is open is nobody's.
        const auto dump =
            ended(busdump, words("--adapter usb:ttyUSB0 --baudrate 921600 --count 2"), [this](Program &running) {
                const auto hasEnded = [&] {
                    mDevice->send(wire(makeFrame(0x123, QByteArray::fromHex("11FF"))));
                    return running.process().waitForFinished(100);
                };
                static_cast<void>(QTest::qWaitFor(hasEnded, 60000));
            });
        QVERIFY2(mStatus == 0, dump->errors().constData());
        static const QRegularExpression form(QStringLiteral("\\A(\\(\\d+\\.\\d{6}\\) ttyUSB0 123#11FF\\n){2}\\z"));
        QVERIFY2(form.match(QString::fromLatin1(dump->output())).hasMatch(), dump->output().constData());
        QVERIFY2(dump->errors().startsWith(recordsOfTheLibrary), dump->errors().constData());
    }

    void recordingReachesTheDevice()
    {
        QByteArray recording;
        QByteArray expected;
        for (quint32 id = 0; id < 500; ++id) {
            recording += "(1.0) can0 " + QByteArray::number(id, 16).rightJustified(3, '0') + "#0102030405060780\n";
            expected += wire(makeFrame(id, QByteArray::fromHex("0102030405060780")));
        }
        const auto player = ended(busplay, words("--adapter usb:ttyUSB0 --fast"), [&recording](Program &running) {
            running.write(recording);
            running.endInput();
        });
        QCOMPARE(player->errors(), recordsOfTheLibrary);
        QCOMPARE(mStatus, 0);
        QTRY_COMPARE_WITH_TIMEOUT(mDevice->receivedCount(), expected.size(), WaitMs);
        QVERIFY(mDevice->received() == expected);
    }

    void interruptedPlayerEndsThoughTheRecordingIsLong()
    {
        const QByteArray message = wire(makeFrame(0x123, "12345678"));
        // At this rate it would take three minutes.
        const QByteArray recording = QByteArray("(1.0) can0 123#3132333435363738\n").repeated(10000);
        const auto player =
            ended(busplay, words("--adapter usb:ttyUSB0 --baudrate 9600 --fast"), [&](Program &running) {
                running.write(recording);
                running.endInput();
                const auto sends = [&] {
                    return mDevice->receivedCount() > 0 || running.process().state() == QProcess::NotRunning;
                };
                if (QTest::qWaitFor(sends, 60000) && running.process().state() == QProcess::Running)
                    running.sendSignal(SIGINT);
            });
        QCOMPARE(mStatus, 128 + SIGINT);
        // What it had accepted was sent, which is about as much as the line carries in the time.
        static const QRegularExpression form(QStringLiteral("\\Abusplay: interrupted, (\\d+) frames were sent\\n\\z"));
        const QByteArray errors = player->errors();
        QVERIFY2(errors.startsWith(recordsOfTheLibrary), errors.constData());
        const int sent = form.match(QString::fromLatin1(errors.mid(recordsOfTheLibrary.size()))).captured(1).toInt();
        QVERIFY2(sent > 0 && sent < 10000, errors.constData());
        QTRY_COMPARE_WITH_TIMEOUT(mDevice->receivedCount(), sent * message.size(), WaitMs);
        QVERIFY(mDevice->received() == message.repeated(sent));
    }

    void cyclesReachTheDevice_data()
    {
        QTest::addColumn<QString>("option");
        QTest::newRow("plain") << QString();
        QTest::newRow("sent back") << QStringLiteral("--half-duplex");
    }
    void cyclesReachTheDevice()
    {
        QFETCH(QString, option);
        QStringList arguments = words("--adapter usb:ttyUSB0 --count 5 --interval 10 123#1122");
        if (!option.isEmpty())
            arguments.prepend(option);
        mDevice->setReturning(!option.isEmpty());
        const auto sender = ended(buscycle, arguments, [](Program &) {});
        QVERIFY2(mStatus == 0, sender->errors().constData());
        QCOMPARE(sender->output(), QByteArray("frames sent: 5\n"));
        QTRY_COMPARE_WITH_TIMEOUT(mDevice->received(), wire(makeFrame(0x123, QByteArray::fromHex("1122"))).repeated(5),
                                  WaitMs);
    }
};

QTEST_GUILESS_MAIN(TestUsbPrograms)
#include "tst_usb_programs.moc"
