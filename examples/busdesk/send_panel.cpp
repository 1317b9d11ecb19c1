// SPDX-License-Identifier: MIT
#include "busdesk/send_panel.h"

#include "busdesk/adapter_choice.h"
#include "busdesk/adapter_desk.h"
#include "busdesk/frame_table.h"
#include "busdesk/named_widgets.h"
#include "common/candump_log.h"

#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QScrollArea>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QVBoxLayout>

namespace buslink {

namespace {

// Without a pause the queue of an adapter would grow for ever; closing the window waits for the longest one.
constexpr int IntervalMinMs = 1;
constexpr int IntervalMaxMs = 10000;
constexpr int CountMax = 1000000000;

} // namespace

SendRow::SendRow(AdapterDesk *desk)
    : mAdapter(named<AdapterChoice>("sendAdapter", tr("Where the frame goes"), desk))
    , mFrame(named<QLineEdit>("sendFrame",
                              tr("123#1122: classic; 8 digits in front: extended; 123#R4: remote frame of 4 bytes;\n"
                                 "123##11122: CAN FD, the digit is 1 for the bit-rate switch")))
    , mInterval(named<QSpinBox>("sendInterval", tr("Pause after each frame in milliseconds")))
    , mCount(named<QSpinBox>("sendCount", tr("How many frames are sent at a start")))
    , mStart(named<QPushButton>("sendStart", tr("Sends again and again until it is stopped"), tr("Start")))
    , mSent(named<QLabel>("sendSent", tr("Frames that the adapter took")))
{
    addFields();
    connect(mAdapter, &AdapterChoice::refused, this, [this](const QString &why) { Q_EMIT told(why, true); });
    connect(desk, &AdapterDesk::aboutToClose, this, [this](AbstractCanAdapter *adapter) {
        if (mJob.adapter() != adapter)
            return;
        mJob.stop();
        showRunning();
    });
    connect(&mJob, &SendJob::ended, this, [this](const QString &error) {
        showRunning();
        if (!error.isEmpty())
            Q_EMIT told(error, true);
    });
    showSent();
}

void SendRow::addFields()
{
    mFrame->setText(QStringLiteral("123#1122334455667788"));
    mFrame->setFont(fixedFont());
    setFocusProxy(mFrame);
    mInterval->setRange(IntervalMinMs, IntervalMaxMs);
    mInterval->setValue(100);
    mInterval->setSuffix(tr(" ms"));
    mCount->setRange(0, CountMax);
    mCount->setSpecialValueText(tr("without end"));
    mCount->setSuffix(tr(" frames"));
    mStart->setCheckable(true);
    mSent->setMinimumWidth(100);
    auto *const once = named<QPushButton>("sendOnce", tr("Sends the frame once"), tr("Send once"));
    auto *const remove = named<QPushButton>("sendRemove", tr("Takes the frame off the list"), tr("Remove"));
    auto *const row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(mAdapter);
    row->addWidget(mFrame, 1);
    row->addWidget(once);
    row->addWidget(mInterval);
    row->addWidget(mCount);
    row->addWidget(mStart);
    row->addWidget(mSent);
    row->addWidget(remove);
    connect(once, &QPushButton::clicked, this, &SendRow::sendOnce);
    connect(mFrame, &QLineEdit::returnPressed, this, &SendRow::sendOnce);
    connect(mStart, &QPushButton::clicked, this, &SendRow::toggle);
    connect(remove, &QPushButton::clicked, this, &SendRow::removed);
}

std::optional<CAN::CanMessage> SendRow::frame()
{
    CAN::CanMessage message;
    const std::string error = parseFrame(mFrame->text().trimmed().toStdString(), message);
    mFrame->setStyleSheet(error.empty() ? QString() : QStringLiteral("color: #c62828"));
    if (error.empty())
        return message;
    Q_EMIT told(tr("'%1' cannot be sent: %2").arg(mFrame->text(), QString::fromStdString(error)), true);
    return {};
}

void SendRow::sendOnce()
{
    const std::optional<CAN::CanMessage> message = frame();
    AbstractCanAdapter *const adapter = message ? mAdapter->openAdapter() : nullptr;
    if (!adapter)
        return;
    switch (adapter->write(*message)) {
    case CAN::RetOk:
        ++mSentBefore;
        showSent();
        return;
    case CAN::RetTxBufferFull:
        Q_EMIT told(tr("adapter %1 has no room for a frame").arg(adapter->getId()), true);
        return;
    default:
        Q_EMIT told(tr("adapter %1 refused the frame").arg(adapter->getId()), true);
    }
}

void SendRow::toggle(bool start)
{
    const std::optional<CAN::CanMessage> message = start ? frame() : std::nullopt;
    AbstractCanAdapter *const adapter = message ? mAdapter->openAdapter() : nullptr;
    mJob.stop();
    if (adapter) {
        mSentBefore += mJob.sentFrames();
        mJob.start(adapter,
                   {*message, static_cast<quint32>(mInterval->value()), static_cast<quint32>(mCount->value())});
    }
    showRunning();
}

void SendRow::showRunning()
{
    const bool running = mJob.isRunning();
    mStart->setChecked(running);
    mStart->setText(running ? tr("Stop") : tr("Start"));
    for (QWidget *field :
         {static_cast<QWidget *>(mAdapter), static_cast<QWidget *>(mInterval), static_cast<QWidget *>(mCount)})
        field->setEnabled(!running);
    mFrame->setReadOnly(running);
    mFrame->setCursorPosition(0);
    showSent();
}

void SendRow::showSent()
{
    mSent->setText(tr("%1 sent").arg(mSentBefore + mJob.sentFrames()));
}

SendPanel::SendPanel(AdapterDesk *desk)
    : mDesk(desk)
    , mAdd(named<QPushButton>("addFrame", tr("Adds another frame to send"), tr("Add &frame")))
    , mRows(new QVBoxLayout)
{
    auto *const scroll = new QScrollArea;
    auto *const inside = new QWidget;
    auto *const insideLayout = new QVBoxLayout(inside);
    insideLayout->addWidget(mAdd, 0, Qt::AlignLeft);
    insideLayout->addLayout(mRows);
    insideLayout->addStretch();
    scroll->setWidget(inside);
    scroll->setWidgetResizable(true);
    scroll->setFocusPolicy(Qt::NoFocus);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->viewport()->setAutoFillBackground(false);
    inside->setAutoFillBackground(false);
    auto *const layout = new QVBoxLayout(this);
    layout->addWidget(scroll);
    connect(mAdd, &QPushButton::clicked, this, &SendPanel::addRow);
    setFocusProxy(mAdd);
    addRow();
}

void SendPanel::addRow()
{
    auto *const row = new SendRow(mDesk);
    row->setObjectName(QStringLiteral("sendRow"));
    mRows->addWidget(row);
    letFirstFieldHaveTheKeyboard();
    connect(row, &SendRow::told, this, &SendPanel::told);
    connect(row, &SendRow::removed, this, [this, row] {
        mRows->removeWidget(row);
        row->deleteLater();
        letFirstFieldHaveTheKeyboard();
    });
}

void SendPanel::letFirstFieldHaveTheKeyboard()
{
    QLayoutItem *const first = mRows->itemAt(0);
    setFocusProxy(first ? first->widget() : mAdd);
}

void SendPanel::showSent()
{
    for (int i = 0; i < mRows->count(); ++i)
        qobject_cast<SendRow *>(mRows->itemAt(i)->widget())->showSent();
}

} // namespace buslink
