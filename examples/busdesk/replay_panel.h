// SPDX-License-Identifier: MIT
#pragma once

#include "busdesk/replay.h"

#include <QtWidgets/QWidget>

class QLabel;
class QProgressBar;
class QPushButton;

namespace buslink {

class AdapterChoice;
class AdapterDesk;

/// Loads a recording and plays it to an adapter.
class ReplayPanel : public QWidget
{
    Q_OBJECT

public:
    explicit ReplayPanel(AdapterDesk *desk);

    /// Begins to read a recording; an old one goes.
    void load(const QString &path);
    /// Shows how far the replay is by now.
    void showProgress();

Q_SIGNALS:
    void told(const QString &text, bool isProblem);
    /// The frames of the recording are wanted in the trace.
    void framesWanted(const std::vector<CAN::CanRxMessage> &frames);

private:
    void addParts();
    void choose();
    void loaded(const std::shared_ptr<const Recording> &recording, const QString &error);
    void playOrPause();
    void stop(const QString &error);
    void showFrames();
    void showState();
    void complain(const QString &error);

    Replay mReplay;
    RecordingReader mReader;
    std::shared_ptr<const Recording> mRecording;
    AdapterChoice *mAdapter;
    QPushButton *mPlay;
    QPushButton *mStop;
    QPushButton *mShow;
    QLabel *mFile;
    QProgressBar *mProgress;
    QLabel *mTime;
    QLabel *mProblem;
};

} // namespace buslink
