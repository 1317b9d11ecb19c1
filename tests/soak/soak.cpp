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
        mStop = true;
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
            while (!isDone() && !mStop) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                sendDue();
            }
        });
    }
    bool isDone() const { return mSent == mFrames; }
    quint32 sent() const { return mSent; }
    /// The pace that was reached, 0 if it is not done.
    double framesPerSecond() const { return isDone() ? mFrames / mSeconds : 0.0; }

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
    std::atomic<bool> mStop = false;
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

/// Until everything has been sent and has arrived. False if frames neither leave nor come any more.
bool waitForAll(const Lines &lines, const std::vector<std::unique_ptr<Sender>> &senders, quint32 frames)
{
    const auto received = [&] { return receivedByAll(lines); };
    const auto allSent = [&] {
        return std::all_of(senders.begin(), senders.end(), [](const auto &sender) { return sender->isDone(); });
    };
    if (!waitWhileFramesCome(allSent, received, 60000)) {
        std::fprintf(stderr, "given up: nothing was received for a minute\n");
        return false;
    }
    const quint64 expected = receiversOf(lines) * frames;
    const bool complete = waitWhileFramesCome([&] { return received() >= expected; }, received, 30000);
    if (!complete)
        std::fprintf(stderr, "given up: nothing more was received for 30 s\n");
    // What comes twice comes late.
    QTest::qWait(200);
    return complete;
}

bool print(const FrameCount::Result &result, const Sender &sender)
{
    std::printf("%-26s %9u %9u %6u %7u %9u %14.1f %9.0f\n", qPrintable(result.name), sender.sent(), result.received,
                result.lost, result.doubled, result.reordered, result.longestGap.count(), sender.framesPerSecond());
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
    bool clean = waitForAll(lines, senders, frames);
    std::printf("%-26s %9s %9s %6s %7s %9s %14s %9s\n", "back end", "sent", "received", "lost", "doubled", "reordered",
                "longest gap/ms", "frames/s");
    for (std::size_t index = 0; index < lines.size(); ++index) {
        for (const auto &receiver : lines[index]->receivers())
            clean = print(receiver->result(), *senders[index]) && clean;
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
                                  QStringLiteral("virtual|socketcan|can4linux|usb|gateway|bridge"));
    const QCommandLineOption cycles(QStringLiteral("cycles"),
                                    QStringLiteral("Instead opens and closes each back end so often."),
                                    QStringLiteral("number"));
    parser.addOptions({seconds, rate, only, cycles});
    parser.addHelpOption();
    parser.process(application);
    if (parser.isSet(cycles))
        return runCycles(parser.value(cycles).toInt(), parser.value(only)) ? 0 : 1;
    const quint32 frameRate = parser.value(rate).toUInt();
    const quint32 duration = parser.value(seconds).toUInt();
    if (frameRate == 0 || duration == 0) {
        std::fprintf(stderr, "--seconds and --rate take positive numbers\n");
        return 2;
    }
    return soak(duration, frameRate, parser.value(only)) ? 0 : 1;
}
