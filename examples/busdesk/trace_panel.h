// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <QtWidgets/QWidget>

#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableView;

namespace buslink {

class AdapterDesk;
class TraceModel;

/// The trace of received and sent frames, with what chooses among them.
class TracePanel : public QWidget
{
    Q_OBJECT

public:
    explicit TracePanel(AdapterDesk *desk);

    void append(const std::vector<CAN::CanRxMessage> &frames);
    TraceModel *model() { return mModel; }
    /// Writes the frames that are shown to a file, in the candump log form; one that is there is replaced as a whole
    /// or not at all. Returns why not, or an empty text.
    QString saveTo(const QString &path) const;

Q_SIGNALS:
    void told(const QString &text, bool isProblem);
    /// All frames were forgotten.
    void cleared();

private:
    void addControls();
    void applyFilter();
    void offer();
    void copySelected();
    void saveAs();
    void showCount();

    AdapterDesk *mDesk;
    TraceModel *mModel;
    QTableView *mTable;
    QLineEdit *mIds;
    QComboBox *mAdapter;
    QPushButton *mPause;
    QCheckBox *mFollow;
    QLabel *mCount;
};

} // namespace buslink
