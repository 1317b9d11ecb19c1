// SPDX-License-Identifier: MIT
// All back ends at once, at the pace of a full bus on each, and every frame counted at every receiver.
#include "soak/cycles.h"
#include "soak/lines.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>
#include <QtTest/QtTest>

#include <atomic>
#include <cstdio>
#include <thread>

namespace {

using Lines = std::vector<std::unique_ptr<SoakLine>>;

/// Sends the frames of one line as they fall due. What could not be sent in time follows at once, as from an
/// application that was held up.
class Sender
{
public:
    Sender(SoakLine &line, double framesPerSecond, quint32 frames)
        : mLine(line), mFramesPerSecond(framesPerSecond), mFrames(frames)
    {}
    ~Sender()
    {
        if (mThread.joinable())
            mThread.join();
    }
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    void start()
    {
        mSinceStart.start();
        if (mLine.needsEventLoop()) {
            QObject::connect(&mTimer, &QTimer::timeout, [this] { sendDue(); });
            mTimer.setTimerType(Qt::PreciseTimer);
            mTimer.start(1);
            return;
        }
        mThread = std::thread([this] {
            while (!isDone()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                sendDue();
            }
        });
    }
    bool isDone() const { return mSent == mFrames; }
    /// The pace that was reached.
    double framesPerSecond() const { return mFrames / mSeconds; }

private:
    void sendDue()
    {
        const double due = static_cast<double>(mSinceStart.nsecsElapsed()) * 1e-9 * mFramesPerSecond;
        while (!isDone() && mSent <= due && mLine.send(mSent)) {
            if (mSent + 1 == mFrames)
                mSeconds = static_cast<double>(mSinceStart.nsecsElapsed()) * 1e-9;
            ++mSent;
        }
    }

    SoakLine &mLine;
    double mFramesPerSecond;
    quint32 mFrames;
    QElapsedTimer mSinceStart;
    double mSeconds = 0.0;
    std::atomic<quint32> mSent = 0;
    QTimer mTimer;
    std::thread mThread;
};

quint64 receivedByAll(const Lines &lines)
{
    quint64 sum = 0;
    for (const auto &line : lines) {
        for (const auto &receiver : line->receivers())
            sum += receiver->received();
    }
    return sum;
}

quint64 receiversOf(const Lines &lines)
{
    quint64 sum = 0;
    for (const auto &line : lines)
        sum += line->receivers().size();
    return sum;
}

/// Until everything has arrived, or nothing more does.
void drain(const Lines &lines, quint32 frames)
{
    constexpr int patienceMs = 5000;
    const quint64 expected = receiversOf(lines) * frames;
    quint64 before = 0;
    do {
        before = receivedByAll(lines);
    } while (!QTest::qWaitFor([&] { return receivedByAll(lines) >= expected; }, patienceMs)
             && receivedByAll(lines) != before);
    // What comes twice comes late.
    QTest::qWait(200);
}

bool print(const FrameCount::Result &result, quint32 sent, double framesPerSecond)
{
    std::printf("%-26s %9u %9u %6u %7u %9u %14.1f %9.0f\n", qPrintable(result.name), sent, result.received, result.lost,
                result.doubled, result.reordered, result.longestGap.count(), framesPerSecond);
    if (result.foreign > 0)
        std::printf("%s: %u records were not as sent\n", qPrintable(result.name), result.foreign);
    return result.isClean();
}

bool soak(quint32 seconds, quint32 framesPerSecond, const QString &only)
{
    const quint32 frames = seconds * framesPerSecond;
    const Lines lines = makeLines(frames, only);
    if (lines.empty()) {
        std::fprintf(stderr, "there is no such back end here\n");
        return false;
    }
    std::vector<std::unique_ptr<Sender>> senders;
    for (const auto &line : lines) {
        if (!line->open()) {
            std::fprintf(stderr, "%s: cannot be opened\n", qPrintable(line->receivers().front()->result().name));
            return false;
        }
        senders.push_back(std::make_unique<Sender>(*line, framesPerSecond, frames));
    }
    for (const auto &sender : senders)
        sender->start();
    const auto allSent = [&] {
        return std::all_of(senders.begin(), senders.end(), [](const auto &sender) { return sender->isDone(); });
    };
    while (!QTest::qWaitFor(allSent, 60000)) {
    }
    drain(lines, frames);

    bool clean = true;
    std::printf("%-26s %9s %9s %6s %7s %9s %14s %9s\n", "back end", "sent", "received", "lost", "doubled", "reordered",
                "longest gap/ms", "frames/s");
    for (std::size_t index = 0; index < lines.size(); ++index) {
        for (const auto &receiver : lines[index]->receivers())
            clean = print(receiver->result(), frames, senders[index]->framesPerSecond()) && clean;
    }
    return clean;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    // Adapters leave debug records, which are no matter here.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type >= QtWarningMsg)
            std::fprintf(stderr, "%s\n", qPrintable(text));
    });
    QCommandLineParser parser;
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("How long frames are sent."),
                                     QStringLiteral("number"), QStringLiteral("600"));
    const QCommandLineOption rate(QStringLiteral("rate"), QStringLiteral("Frames a second on each back end."),
                                  QStringLiteral("number"), QStringLiteral("9000"));
    const QCommandLineOption only(QStringLiteral("only"), QStringLiteral("This back end alone."),
                                  QStringLiteral("virtual|socketcan|usb|gateway|bridge"));
    const QCommandLineOption cycles(QStringLiteral("cycles"),
                                    QStringLiteral("Instead opens and closes each back end so often."),
                                    QStringLiteral("number"));
    parser.addOptions({seconds, rate, only, cycles});
    parser.addHelpOption();
    parser.process(application);
    if (parser.isSet(cycles))
        return runCycles(parser.value(cycles).toInt()) ? 0 : 1;
    const quint32 frameRate = parser.value(rate).toUInt();
    const quint32 duration = parser.value(seconds).toUInt();
    if (frameRate == 0 || duration == 0) {
        std::fprintf(stderr, "--seconds and --rate take positive numbers\n");
        return 2;
    }
    return soak(duration, frameRate, parser.value(only)) ? 0 : 1;
}
