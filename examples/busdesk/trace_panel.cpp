// SPDX-License-Identifier: MIT
#include "busdesk/trace_panel.h"

#include "busdesk/adapter_choice.h"
#include "busdesk/adapter_desk.h"
#include "busdesk/frame_table.h"
#include "busdesk/frame_texts.h"
#include "busdesk/named_widgets.h"
#include "busdesk/trace_model.h"
#include "common/file_replacement.h"

#include <QtCore/QRegularExpression>
#include <QtGui/QClipboard>
#include <QtGui/QGuiApplication>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QShortcut>
#include <QtWidgets/QVBoxLayout>

#include <algorithm>

namespace buslink {

TracePanel::TracePanel(AdapterDesk *desk)
    : mDesk(desk)
    , mModel(new TraceModel)
    , mTable(named<QTableView>("trace", QString()))
    , mIds(named<QLineEdit>("traceIds", tr("Hexadecimal identifiers to show, as 123 or 100-1FF, several with commas")))
    , mAdapter(named<QComboBox>("traceAdapter", tr("The adapter whose frames are shown")))
    , mPause(named<QPushButton>("pause", tr("Holds the trace; what comes meanwhile is added afterwards"), tr("&Pause")))
    , mFollow(named<QCheckBox>("follow", tr("Keeps the newest frame in sight"), tr("&Follow")))
    , mCount(named<QLabel>("traceCount", tr("Frames shown, and frames kept")))
{
    mModel->setParent(this);
    mTable->setModel(mModel);
    prepareFrameTable(mTable, {13, 7, 3, 10, 10, 5});
    auto *const layout = new QVBoxLayout(this);
    layout->addLayout(new QHBoxLayout);
    layout->addWidget(mTable, 1);
    layout->setContentsMargins(0, 0, 0, 9);
    addControls();
    auto *const copy = new QShortcut(QKeySequence::Copy, this);
    copy->setContext(Qt::WidgetWithChildrenShortcut);
    connect(copy, &QShortcut::activated, this, &TracePanel::copySelected);
    connect(mDesk, &AdapterDesk::setChanged, this, &TracePanel::offer);
    offer();
    showCount();
}

void TracePanel::addControls()
{
    auto *const row = static_cast<QHBoxLayout *>(layout()->itemAt(0)->layout());
    auto *const clear =
        named<QPushButton>("clearTrace", tr("Forgets all frames and begins to count anew"), tr("C&lear"));
    auto *const copy =
        named<QPushButton>("copyTrace", tr("Copies the selected frames in the candump log form (Ctrl+C)"), tr("Copy"));
    auto *const save = named<QPushButton>(
        "saveTrace", tr("Writes the frames that are shown to a file in the candump log form"), tr("Sa&ve..."));
    mPause->setCheckable(true);
    mFollow->setChecked(true);
    mIds->setPlaceholderText(tr("all identifiers"));
    mIds->setClearButtonEnabled(true);
    auto *const label = new QLabel(tr("&Identifiers"));
    label->setBuddy(mIds);
    for (QWidget *widget :
         {static_cast<QWidget *>(mPause), static_cast<QWidget *>(mFollow), static_cast<QWidget *>(label),
          static_cast<QWidget *>(mIds), static_cast<QWidget *>(mAdapter), static_cast<QWidget *>(mCount),
          static_cast<QWidget *>(copy), static_cast<QWidget *>(save), static_cast<QWidget *>(clear)})
        row->addWidget(widget);
    row->setStretchFactor(mIds, 1);
    connect(mPause, &QPushButton::toggled, this, [this](bool paused) {
        mModel->setPaused(paused);
        append({});
    });
    connect(mIds, &QLineEdit::textChanged, this, &TracePanel::applyFilter);
    connect(mAdapter, qOverload<int>(&QComboBox::currentIndexChanged), this, &TracePanel::applyFilter);
    connect(copy, &QPushButton::clicked, this, &TracePanel::copySelected);
    connect(save, &QPushButton::clicked, this, &TracePanel::saveAs);
    connect(clear, &QPushButton::clicked, this, [this] {
        mModel->clear();
        showCount();
        Q_EMIT cleared();
    });
}

void TracePanel::offer()
{
    const QSignalBlocker quiet(mAdapter);
    offerAdapters(*mAdapter, mDesk->adapters(), tr("all adapters"));
    applyFilter();
}

// A text that is no filter is shown as such and changes nothing.
void TracePanel::applyFilter()
{
    const QStringList words = mIds->text().split(QRegularExpression(QStringLiteral("[,\\s]+")), Qt::SkipEmptyParts);
    const IdArgument ids = parseIdRanges(words);
    mIds->setStyleSheet(ids.error.isEmpty() ? QString() : QStringLiteral("color: #c62828"));
    if (!ids.error.isEmpty())
        return;
    mModel->setFilter({ids.ranges, static_cast<quint16>(mAdapter->currentData().toUInt())});
    append({});
}

void TracePanel::append(const std::vector<CAN::CanRxMessage> &frames)
{
    mModel->append(frames);
    if (mFollow->isChecked() && !mModel->isPaused())
        mTable->scrollToBottom();
    showCount();
}

void TracePanel::showCount()
{
    QString text = tr("%1 of %2 frames").arg(mModel->rowCount()).arg(mModel->size());
    if (mModel->waiting() > 0)
        text += tr(", %1 waiting").arg(mModel->waiting());
    const qint64 lost = mDesk->inbox().lostFrames();
    if (lost > 0)
        text += tr(", %1 LOST").arg(lost);
    mCount->setText(text);
}

void TracePanel::copySelected()
{
    QModelIndexList rows = mTable->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end(), [](const QModelIndex &a, const QModelIndex &b) { return a.row() < b.row(); });
    QString text;
    for (const QModelIndex &index : qAsConst(rows))
        text += logText(mModel->frameAt(index.row())) + QLatin1Char('\n');
    QGuiApplication::clipboard()->setText(text);
}

QString TracePanel::saveTo(const QString &path) const
{
    FileReplacement file(path);
    for (int row = 0; row < mModel->rowCount(); ++row) {
        if (!file.write(logText(mModel->frameAt(row)).toLatin1() + '\n'))
            break;
    }
    const QString error = file.commit();
    return error.isEmpty() ? QString() : tr("%1: %2").arg(path, error);
}

void TracePanel::saveAs()
{
    const QString path =
        QFileDialog::getSaveFileName(this, tr("Save the trace"), QString(), tr("Recordings (*.log);;All files (*)"));
    const QString error = path.isEmpty() ? QString() : saveTo(path);
    if (!error.isEmpty())
        Q_EMIT told(error, true);
}

} // namespace buslink
