// SPDX-License-Identifier: MIT
#pragma once

#include "busdesk/send_job.h"

#include <QtWidgets/QWidget>

#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;
class QVBoxLayout;

namespace buslink {

class AdapterChoice;
class AdapterDesk;

/// One frame that is sent, once or again and again.
class SendRow : public QWidget
{
    Q_OBJECT

public:
    explicit SendRow(AdapterDesk *desk);

    void showSent();

Q_SIGNALS:
    void told(const QString &text, bool isProblem);
    void removed();

private:
    void addFields();
    void sendOnce();
    void toggle(bool start);
    void showRunning();
    std::optional<CAN::CanMessage> frame();

    SendJob mJob;
    quint64 mSentBefore = 0; // once, or in runs before the last one
    AdapterChoice *mAdapter;
    QLineEdit *mFrame;
    QSpinBox *mInterval;
    QSpinBox *mCount;
    QPushButton *mStart;
    QLabel *mSent;
};

/// Any number of frames to send, each with a pace of its own.
class SendPanel : public QWidget
{
    Q_OBJECT

public:
    explicit SendPanel(AdapterDesk *desk);

    /// Shows how many frames each row has sent by now.
    void showSent();

Q_SIGNALS:
    void told(const QString &text, bool isProblem);

private:
    void addRow();
    void letFirstFieldHaveTheKeyboard();

    AdapterDesk *mDesk;
    QPushButton *mAdd;
    QVBoxLayout *mRows;
};

} // namespace buslink
