// SPDX-License-Identifier: MIT
#pragma once

#include "busdesk/frame_bits.h"
#include "busdesk/load_history.h"

#include <QtCore/QElapsedTimer>
#include <QtWidgets/QWidget>

class QSpinBox;

namespace buslink {

class AdapterDesk;
class SecondsPlot;

/// Frames per second and bus load of each adapter over the last minute.
class LoadPanel : public QWidget
{
    Q_OBJECT

public:
    explicit LoadPanel(AdapterDesk *desk);

    /// Counts frames as of now.
    void append(const std::vector<CAN::CanRxMessage> &frames);
    /// Shows the seconds that are over by now.
    void showLoad();

private:
    BusRates ratesOf(quint16 adapterId) const;
    QSpinBox *addRate(QLayout *row, const char *name, const QString &prefix, const QString &toolTip, quint32 rate);

    AdapterDesk *mDesk;
    QElapsedTimer mClock;
    LoadHistory mHistory;
    qint64 mShownSecond = -1;
    SecondsPlot *mFrames;
    SecondsPlot *mLoad;
    QSpinBox *mNominal;
    QSpinBox *mData;
};

} // namespace buslink
