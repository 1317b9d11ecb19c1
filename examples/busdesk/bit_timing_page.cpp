// SPDX-License-Identifier: MIT
#include "busdesk/bit_timing_page.h"

#include "busdesk/named_widgets.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtGui/QPainter>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QDoubleSpinBox>
#include <QtWidgets/QFormLayout>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QVBoxLayout>

namespace buslink {

namespace {

constexpr int Margin = 10;

int quantaOf(const CAN::CANBitTimingParameter &timing)
{
    return 1 + timing.tSeg1 + timing.tSeg2;
}

QString resultText(const CAN::CANBitTimingParameter &timing, int clock)
{
    const int quanta = quantaOf(timing);
    const double rate = 1000.0 * clock / (double(timing.prescaler) * quanta);
    const double samplePoint = 100.0 * (1 + timing.tSeg1) / quanta;
    return QStringLiteral("Prescaler %1, tSeg1 %2, tSeg2 %3, SJW %4 (time quanta)\n"
                          "Rate %5 kbit/s, sample point %6 %, %7 time quanta of %8 ns a bit")
        .arg(timing.prescaler)
        .arg(timing.tSeg1)
        .arg(timing.tSeg2)
        .arg(timing.sjw)
        .arg(rate, 0, 'g', 6)
        .arg(samplePoint, 0, 'f', 1)
        .arg(quanta)
        .arg(1000.0 * timing.prescaler / clock, 0, 'g', 6);
}

} // namespace

void BitShape::setTiming(const CAN::CANBitTimingParameter &timing)
{
    mTiming = timing;
    update();
}

int BitShape::xOf(double quanta) const
{
    return Margin + qRound((width() - 2 * Margin) * quanta / quantaOf(mTiming));
}

QSize BitShape::sizeHint() const
{
    return {400, 90};
}

void BitShape::paintEvent(QPaintEvent *)
{
    if (mTiming.tSeg2 == 0)
        return;
    QPainter painter(this);
    const int top = 22;
    const int height = 36;
    const int sample = 1 + mTiming.tSeg1;
    const auto segment = [&](int from, int to, const QColor &color, const QString &text) {
        const QRect place(QPoint(xOf(from), top), QPoint(xOf(to) - 1, top + height));
        painter.fillRect(place, color);
        painter.setPen(Qt::black);
        painter.drawText(place, Qt::AlignCenter, text);
    };
    segment(0, 1, QColor(0xB0, 0xBE, 0xC5), QStringLiteral("S"));
    segment(1, sample, QColor(0xBB, 0xDE, 0xFB), tr("tSeg1 %1").arg(mTiming.tSeg1));
    segment(sample, quantaOf(mTiming), QColor(0xC8, 0xE6, 0xC9), tr("tSeg2 %1").arg(mTiming.tSeg2));
    painter.setPen(QColor(0x90, 0xA4, 0xAE));
    for (int quantum = 0; quantum <= quantaOf(mTiming); ++quantum)
        painter.drawLine(xOf(quantum), top + height - 5, xOf(quantum), top + height);
    painter.setPen(QPen(QColor(0xC6, 0x28, 0x28), 2));
    painter.drawLine(xOf(sample), top - 6, xOf(sample), top + height + 6);
    painter.drawText(QRect(xOf(sample) - 60, 0, 120, top - 6), Qt::AlignCenter, tr("sample"));
    const int below = top + height + 12;
    painter.drawLine(xOf(sample - mTiming.sjw), below, xOf(sample + mTiming.sjw), below);
    painter.drawText(QRect(0, below - 10, xOf(sample - mTiming.sjw) - 6, 20), Qt::AlignRight | Qt::AlignVCenter,
                     tr("SJW %1").arg(mTiming.sjw));
}

BitTimingPage::BitTimingPage()
    : mResult(named<QLabel>("timingResult", tr("What the controller is set to, and what comes of it")))
    , mShape(named<BitShape>("bitShape", tr("One bit to scale: S is the synchronisation segment, the red line the "
                                            "sample point, the bar how far it may be moved")))
{
    auto *const wanted = new QFormLayout;
    auto *const limitsForm = new QFormLayout;
    auto *const columns = new QHBoxLayout;
    auto *const layout = new QVBoxLayout(this);
    columns->addLayout(wanted);
    columns->addLayout(limitsForm);
    columns->addStretch();
    columns->setSpacing(32);
    layout->addLayout(columns);
    layout->addWidget(mResult);
    layout->addWidget(mShape);
    layout->addStretch();
    mShape->setMinimumHeight(mShape->sizeHint().height());
    mResult->setTextInteractionFlags(Qt::TextSelectableByMouse);
    addWanted(wanted);
    addLimits(limitsForm);
    setFocusProxy(mClock);
    compute();
}

QSpinBox *BitTimingPage::addNumber(QFormLayout *form, const char *name, const QString &label, const QString &toolTip,
                                   int max, int value)
{
    auto *const box = named<QSpinBox>(name, toolTip);
    box->setRange(1, max);
    box->setValue(value);
    form->addRow(label, box);
    connect(box, qOverload<int>(&QSpinBox::valueChanged), this, &BitTimingPage::compute);
    return box;
}

void BitTimingPage::addWanted(QFormLayout *form)
{
    mClock = addNumber(form, "clock", tr("C&lock (MHz)"), tr("Clock of the controller in MHz"), 255, 80);
    mBitrate = addNumber(form, "timingRate", tr("Rate (kbit/s)"), tr("Wanted rate in kbit/s"), 65535, 500);
    mSamplePoint = named<QDoubleSpinBox>("samplePoint", tr("Wanted sample point in percent of the bit"));
    mSamplePoint->setRange(1, 99);
    mSamplePoint->setDecimals(1);
    mSamplePoint->setValue(87.5);
    form->addRow(tr("Sample point (%)"), mSamplePoint);
    mDataPhase = named<QCheckBox>("dataPhase", tr("Of the fast part of a CAN FD frame"), tr("Data phase"));
    form->addRow(QString(), mDataPhase);
    connect(mSamplePoint, qOverload<double>(&QDoubleSpinBox::valueChanged), this, &BitTimingPage::compute);
    connect(mDataPhase, &QCheckBox::toggled, this, &BitTimingPage::compute);
}

void BitTimingPage::addLimits(QFormLayout *form)
{
    const CAN::CANBitTimingThresholds usual;
    mPrescalerMax = addNumber(form, "prescalerMax", tr("Prescaler up to"), tr("Largest prescaler of the controller"),
                              1024, usual.prescalerMax);
    mTSeg1Max =
        addNumber(form, "tSeg1Max", tr("tSeg1 up to"), tr("Time quanta before the sample point"), 256, usual.tSeg1Max);
    mTSeg2Min =
        addNumber(form, "tSeg2Min", tr("tSeg2 from"), tr("Time quanta behind the sample point"), 128, usual.tSeg2Min);
    mTSeg2Max =
        addNumber(form, "tSeg2Max", tr("tSeg2 up to"), tr("Time quanta behind the sample point"), 128, usual.tSeg2Max);
    mSjwMax =
        addNumber(form, "sjwMax", tr("SJW up to"), tr("Synchronisation jump width in time quanta"), 128, usual.sjwMax);
}

CAN::CANBitTimingThresholds BitTimingPage::limits() const
{
    CAN::CANBitTimingThresholds limits;
    limits.prescalerMax = static_cast<qint16>(mPrescalerMax->value());
    limits.tSeg1Max = static_cast<quint16>(mTSeg1Max->value());
    limits.tSeg2Min = static_cast<quint16>(mTSeg2Min->value());
    limits.tSeg2Max = static_cast<quint16>(mTSeg2Max->value());
    limits.sjwMax = static_cast<quint16>(mSjwMax->value());
    return limits;
}

// While the page is made, some fields are there and others are not.
void BitTimingPage::compute()
{
    if (!mSjwMax)
        return;
    bool found = false;
    const CAN::CANBitTimingParameter timing = AbstractCanAdapter::getTimingParameters(
        static_cast<quint8>(mClock->value()), static_cast<quint16>(mBitrate->value()), mSamplePoint->value(), found,
        mDataPhase->isChecked(), limits());
    mResult->setText(found ? resultText(timing, mClock->value())
                           : tr("The rate cannot be met exactly within these limits"));
    mShape->setTiming(found ? timing : CAN::CANBitTimingParameter());
}

} // namespace buslink
