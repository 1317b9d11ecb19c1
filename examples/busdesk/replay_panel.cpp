// SPDX-License-Identifier: MIT
#include "busdesk/replay_panel.h"

#include "busdesk/adapter_choice.h"
#include "busdesk/adapter_desk.h"
#include "busdesk/named_widgets.h"

#include <QtWidgets/QFileDialog>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QProgressBar>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QVBoxLayout>

namespace buslink {

namespace {

QString secondsText(qint64 us)
{
    return QString::number(static_cast<double>(us) / 1e6, 'f', 1);
}

} // namespace

ReplayPanel::ReplayPanel(AdapterDesk *desk)
    : mAdapter(named<AdapterChoice>("replayAdapter", tr("Where the frames go"), desk))
    , mPlay(named<QPushButton>("replayPlay", tr("Writes the frames with their recorded pauses; holds them meanwhile"),
                               tr("&Play on"))) // the longest of its texts
    , mStop(named<QPushButton>("replayStop", tr("Ends the replay; the next one begins with the first frame"),
                               tr("St&op")))
    , mShow(named<QPushButton>("replayShow", tr("Adds the frames to the trace, without sending them"),
                               tr("S&how in the trace")))
    , mFile(named<QLabel>("replayFile", tr("The recording, its frames, and how long it takes")))
    , mProgress(named<QProgressBar>("replayProgress", tr("Frames that the adapter took, of all; while a recording is "
                                                         "read, how much of it")))
    , mTime(named<QLabel>("replayTime", tr("How far the recording is, and how long it takes, in seconds")))
    , mProblem(named<QLabel>("replayProblem", tr("What went wrong with the recording or its replay")))
{
    addParts();
    connect(mPlay, &QPushButton::clicked, this, &ReplayPanel::playOrPause);
    connect(mStop, &QPushButton::clicked, this, [this] {
        mReplay.stop();
        showState();
    });
    connect(mShow, &QPushButton::clicked, this, &ReplayPanel::showFrames);
    connect(mAdapter, &AdapterChoice::refused, this, &ReplayPanel::complain);
    connect(&mReplay, &Replay::ended, this, &ReplayPanel::stop);
    connect(desk, &AdapterDesk::aboutToClose, this, [this](AbstractCanAdapter *adapter) {
        if (mReplay.adapter() != adapter)
            return;
        mReplay.stop();
        stop(tr("the adapter was closed"));
    });
    connect(&mReader, &RecordingReader::finished, this, &ReplayPanel::loaded);
    connect(&mReader, &RecordingReader::progressed, this, [this](qint64 bytes, qint64 size) {
        mProgress->setValue(size > 0 ? static_cast<int>(100 * bytes / size) : 0);
    });
    showState();
}

void ReplayPanel::addParts()
{
    auto *const choose =
        named<QPushButton>("replayLoad", tr("Reads a recording in the candump log form"), tr("&Load a recording..."));
    auto *const row = new QHBoxLayout;
    auto *const bar = new QHBoxLayout;
    auto *const layout = new QVBoxLayout(this);
    row->addWidget(choose);
    row->addWidget(mFile, 1);
    row->addWidget(mShow);
    bar->addWidget(mAdapter);
    bar->addWidget(mPlay);
    bar->addWidget(mStop);
    bar->addWidget(mProgress, 1);
    bar->addWidget(mTime);
    layout->addLayout(row);
    layout->addLayout(bar);
    layout->addWidget(mProblem);
    layout->addStretch();
    setFocusProxy(choose);
    mFile->setText(tr("no recording"));
    mFile->setTextFormat(Qt::PlainText);
    mProblem->setTextFormat(Qt::PlainText);
    mProblem->setStyleSheet(QStringLiteral("color: #c62828; font-weight: bold"));
    mProblem->setWordWrap(true);
    mProblem->setTextInteractionFlags(Qt::TextSelectableByMouse);
    connect(choose, &QPushButton::clicked, this, &ReplayPanel::choose);
}

void ReplayPanel::choose()
{
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Load a recording"), QString(), tr("Recordings (*.log);;All files (*)"));
    if (!path.isEmpty())
        load(path);
}

void ReplayPanel::load(const QString &path)
{
    mRecording.reset();
    mReplay.setRecording(nullptr);
    mProblem->clear();
    const QString error = mReader.start(path);
    mFile->setText(error.isEmpty() ? tr("reading %1").arg(path) : tr("no recording"));
    if (!error.isEmpty())
        complain(error);
    showState();
}

void ReplayPanel::loaded(const std::shared_ptr<const Recording> &recording, const QString &error)
{
    mRecording = recording;
    mReplay.setRecording(recording);
    if (!recording) {
        mFile->setText(tr("no recording"));
        complain(error);
    } else {
        mFile->setText(tr("%1: %2 frames, %3 s")
                           .arg(recording->path)
                           .arg(recording->frames.size())
                           .arg(secondsText(recording->durationUs())));
    }
    if (recording && recording->damagedLines > 0) {
        const qint64 untold = recording->damagedLines - recording->damages.size();
        mProblem->setText(recording->damages.join(QLatin1Char('\n'))
                          + (untold > 0 ? tr("\nand %1 more damaged lines").arg(untold) : QString()));
        for (const QString &damage : recording->damages)
            Q_EMIT told(damage, true);
    }
    showState();
}

void ReplayPanel::playOrPause()
{
    if (mReplay.isRunning()) {
        mReplay.setPaused(!mReplay.isPaused());
    } else if (AbstractCanAdapter *const adapter = mAdapter->openAdapter()) {
        mProblem->clear();
        mReplay.start(adapter);
    }
    showState();
}

void ReplayPanel::stop(const QString &error)
{
    if (!error.isEmpty())
        complain(tr("the replay ended after %1 of %2 frames: %3")
                     .arg(mReplay.sentFrames())
                     .arg(mRecording->frames.size())
                     .arg(error));
    showState();
}

void ReplayPanel::showFrames()
{
    std::vector<CAN::CanRxMessage> frames;
    frames.reserve(mRecording->frames.size());
    for (const Recording::Frame &frame : mRecording->frames)
        frames.push_back(frame.record);
    Q_EMIT framesWanted(frames);
}

void ReplayPanel::complain(const QString &error)
{
    mProblem->setText(error);
    Q_EMIT told(error, true);
}

void ReplayPanel::showState()
{
    const bool running = mReplay.isRunning();
    const bool ready = mRecording && !mRecording->frames.empty();
    mPlay->setText(!running ? tr("&Play") : mReplay.isPaused() ? tr("&Play on") : tr("&Pause"));
    mPlay->setEnabled(ready);
    mStop->setEnabled(running);
    mShow->setEnabled(ready);
    mAdapter->setEnabled(!running);
    mProgress->setFormat(mReader.isReading() ? tr("reading, %p %") : ready ? tr("%v of %m frames") : QString());
    mProgress->setMaximum(ready ? static_cast<int>(mRecording->frames.size()) : 100);
    mProgress->setValue(0);
    showProgress();
}

void ReplayPanel::showProgress()
{
    if (!mRecording || mRecording->frames.empty()) {
        mTime->clear();
        return;
    }
    mProgress->setValue(static_cast<int>(mReplay.sentFrames()));
    mTime->setText(tr("%1 of %2 s").arg(secondsText(mReplay.positionUs()), secondsText(mRecording->durationUs())));
}

} // namespace buslink
