// SPDX-License-Identifier: MIT
#include "busdesk/adapter_panel.h"

#include "busdesk/adapter_desk.h"
#include "busdesk/adapter_dialog.h"
#include "busdesk/adapter_table_model.h"
#include "busdesk/named_widgets.h"

#include <QtCore/QTime>
#include <QtWidgets/QFileDialog>
#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QHeaderView>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QPushButton>
#include <QtWidgets/QTableView>
#include <QtWidgets/QVBoxLayout>

namespace buslink {

namespace {

constexpr int MessagesMax = 1000;

QString fileFilter()
{
    return QStringLiteral("Sets of adapters (*.json);;All files (*)");
}

} // namespace

AdapterPanel::AdapterPanel(AdapterDesk *desk)
    : mDesk(desk)
    , mModel(new AdapterTableModel(desk))
    , mTable(named<QTableView>("adapters", QString()))
    , mMessages(named<QPlainTextEdit>("messages", tr("What the adapters announced, with the time of day")))
{
    mModel->setParent(this);
    mTable->setModel(mModel);
    mTable->setSelectionBehavior(QAbstractItemView::SelectRows);
    mTable->setSelectionMode(QAbstractItemView::SingleSelection);
    mTable->verticalHeader()->hide();
    mTable->setAlternatingRowColors(true);
    QHeaderView *const header = mTable->horizontalHeader();
    header->setSectionResizeMode(QHeaderView::ResizeToContents);
    header->setSectionResizeMode(AdapterTableModel::Description, QHeaderView::Stretch);
    mMessages->setReadOnly(true);
    mMessages->setMaximumBlockCount(MessagesMax);
    mMessages->setMaximumHeight(90);

    auto *const layout = new QVBoxLayout(this);
    addButtons();
    layout->addWidget(mTable, 1);
    layout->addWidget(mMessages);
    connect(mTable->selectionModel(), &QItemSelectionModel::selectionChanged, this, &AdapterPanel::enableButtons);
    connect(mModel, &QAbstractItemModel::modelReset, this, &AdapterPanel::enableButtons);
    connect(mModel, &AdapterTableModel::refused, this, &AdapterPanel::report);
    connect(desk, &AdapterDesk::statusChanged, this, &AdapterPanel::enableButtons);
    connect(desk, &AdapterDesk::told, this, &AdapterPanel::tell);
    enableButtons();
}

QPushButton *AdapterPanel::addButton(const char *name, const QString &text, const QString &toolTip)
{
    auto *const button = named<QPushButton>(name, toolTip, text);
    layout()->itemAt(0)->layout()->addWidget(button);
    return button;
}

void AdapterPanel::addButtons()
{
    auto *const row = new QHBoxLayout;
    static_cast<QVBoxLayout *>(layout())->addLayout(row);
    mConnect = addButton("connect", tr("&Connect"), tr("Opens all active adapters"));
    mDisconnect = addButton("disconnect", tr("&Disconnect"), tr("Closes all adapters"));
    connect(mConnect, &QPushButton::clicked, mDesk, &AdapterDesk::connectActive);
    connect(mDisconnect, &QPushButton::clicked, mDesk, &AdapterDesk::disconnectAll);
    row->addSpacing(16);
    connect(addButton("add", tr("&Add..."), tr("Adds an adapter to the set")), &QPushButton::clicked, this,
            &AdapterPanel::add);
    mEdit = addButton("edit", tr("&Edit..."), tr("Changes the selected adapter, which has to be closed"));
    connect(mEdit, &QPushButton::clicked, this, &AdapterPanel::edit);
    mUp = addButton("up", tr("&Up"), tr("Moves the selected adapter to the number below"));
    connect(mUp, &QPushButton::clicked, this, [this] { move(true); });
    mDown = addButton("down", tr("Do&wn"), tr("Moves the selected adapter to the number above"));
    connect(mDown, &QPushButton::clicked, this, [this] { move(false); });
    mRemove = addButton("remove", tr("Re&move"), tr("Closes the selected adapter and takes it out of the set"));
    connect(mRemove, &QPushButton::clicked, this, &AdapterPanel::remove);
    row->addStretch();
    connect(addButton("save", tr("&Save..."), tr("Writes the set to a file, which bussets reads as well")),
            &QPushButton::clicked, this, &AdapterPanel::saveAs);
    connect(addButton("restore", tr("&Restore..."), tr("Puts the adapters of a file in the place of these")),
            &QPushButton::clicked, this, &AdapterPanel::restore);
}

void AdapterPanel::tell(const QString &text, bool isProblem)
{
    const QString line = QTime::currentTime().toString(QStringLiteral("hh:mm:ss.zzz  ")) + text;
    mMessages->appendHtml(
        QStringLiteral("<span style=\"white-space:pre;%1\">%2</span>")
            .arg(isProblem ? QStringLiteral("color:#c62828;font-weight:bold") : QString(), line.toHtmlEscaped()));
}

void AdapterPanel::report(const QString &error)
{
    if (!error.isEmpty())
        tell(error, true);
}

unsigned short AdapterPanel::selectedId() const
{
    const QModelIndexList rows = mTable->selectionModel()->selectedRows();
    return rows.isEmpty() ? static_cast<unsigned short>(0) : mModel->idAt(rows.first().row());
}

void AdapterPanel::select(unsigned short id)
{
    for (int row = 0; row < mModel->rowCount(); ++row) {
        if (mModel->idAt(row) == id)
            mTable->selectRow(row);
    }
}

void AdapterPanel::enableButtons()
{
    const unsigned short id = selectedId();
    AbstractCanAdapter *const selected = mDesk->adapter(id);
    const AdapterStatus status = mDesk->status(selected);
    mConnect->setEnabled(mModel->rowCount() > 0);
    mDisconnect->setEnabled(mDesk->isConnected());
    mEdit->setEnabled(selected && !status.open && !status.closing);
    mRemove->setEnabled(selected);
    mUp->setEnabled(selected && id > 1);
    mDown->setEnabled(selected && id != mModel->idAt(mModel->rowCount() - 1));
}

void AdapterPanel::add()
{
    AdapterDialog dialog(this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    report(mDesk->add(dialog.create(), dialog.description()));
    select(mModel->idAt(mModel->rowCount() - 1));
}

void AdapterPanel::edit()
{
    const unsigned short id = selectedId();
    AbstractCanAdapter *const adapter = mDesk->adapter(id);
    if (!adapter)
        return;
    AdapterDialog dialog(this);
    dialog.showAdapter(*adapter);
    if (dialog.exec() == QDialog::Accepted)
        report(mDesk->replace(id, dialog.create(), dialog.description()));
    select(id);
}

void AdapterPanel::remove()
{
    report(mDesk->remove(selectedId()));
}

void AdapterPanel::move(bool up)
{
    AbstractCanAdapter *const adapter = mDesk->adapter(selectedId());
    if (!adapter)
        return;
    report(mDesk->move(adapter->getId(), up ? MultiCanAdapterHandler::Up : MultiCanAdapterHandler::Down));
    select(adapter->getId());
}

void AdapterPanel::save(const QString &path)
{
    report(mDesk->save(path));
}

void AdapterPanel::load(const QString &path)
{
    report(mDesk->load(path));
}

void AdapterPanel::saveAs()
{
    const QString path = QFileDialog::getSaveFileName(this, tr("Save the set"), QString(), fileFilter());
    if (!path.isEmpty())
        save(path);
}

void AdapterPanel::restore()
{
    const QString path = QFileDialog::getOpenFileName(this, tr("Restore a set"), QString(), fileFilter());
    if (!path.isEmpty())
        load(path);
}

} // namespace buslink
