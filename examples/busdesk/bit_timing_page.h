// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_bitrates.h>

#include <QtWidgets/QWidget>

class QCheckBox;
class QDoubleSpinBox;
class QFormLayout;
class QLabel;
class QSpinBox;

namespace buslink {

/// One bit, drawn to scale: its segments in time quanta, the sample point, and how far it may be moved.
class BitShape : public QWidget
{
    Q_OBJECT

public:
    /// Shows these values; nothing where there is no time quantum behind the sample point.
    void setTiming(const CAN::CANBitTimingParameter &timing);
    /// Where a number of time quanta from the start of the bit lies.
    int xOf(double quanta) const;

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    CAN::CANBitTimingParameter mTiming;
};

/// Finds a controller's timing values for a rate and a sample point.
class BitTimingPage : public QWidget
{
    Q_OBJECT

public:
    BitTimingPage();

private:
    QSpinBox *addNumber(QFormLayout *form, const char *name, const QString &label, const QString &toolTip, int max,
                        int value);
    void addWanted(QFormLayout *form);
    void addLimits(QFormLayout *form);
    void compute();
    CAN::CANBitTimingThresholds limits() const;

    QSpinBox *mClock = nullptr;
    QSpinBox *mBitrate = nullptr;
    QDoubleSpinBox *mSamplePoint = nullptr;
    QCheckBox *mDataPhase = nullptr;
    QSpinBox *mPrescalerMax = nullptr;
    QSpinBox *mTSeg1Max = nullptr;
    QSpinBox *mTSeg2Min = nullptr;
    QSpinBox *mTSeg2Max = nullptr;
    QSpinBox *mSjwMax = nullptr;
    QLabel *mResult;
    BitShape *mShape;
};

} // namespace buslink
