// SPDX-License-Identifier: MIT
#include "busdesk/desk_window.h"

#include "busdesk/adapter_panel.h"
#include "busdesk/desk_texts.h"
#include "busdesk/named_widgets.h"

#include <QtWidgets/QLabel>
#include <QtWidgets/QSplitter>
#include <QtWidgets/QStatusBar>
#include <QtWidgets/QTabWidget>

namespace buslink {

DeskWindow::DeskWindow()
    : mAdapterPanel(new AdapterPanel(&mDesk))
    , mPages(named<QTabWidget>("pages", QString()))
    , mLamp(named<QLabel>("lamp", tr("The adapters that are open, and the worst that one of them tells")))
{
    setWindowTitle(tr("Bus desk"));
    auto *const halves = new QSplitter(Qt::Vertical);
    halves->addWidget(mAdapterPanel);
    setCentralWidget(halves);
    statusBar()->addWidget(mLamp);
    connect(&mDesk, &AdapterDesk::statusChanged, this, &DeskWindow::showStatus);
    showStatus();
    resize(1100, 760);
}

// The pages ask the desk until they are gone.
DeskWindow::~DeskWindow()
{
    delete takeCentralWidget();
}

void DeskWindow::showStatus()
{
    int open = 0;
    QString trouble;
    bool passive = false;
    const QList<AbstractCanAdapter *> adapters = mDesk.adapters();
    for (AbstractCanAdapter *adapter : adapters) {
        const AdapterStatus status = mDesk.status(adapter);
        open += status.open ? 1 : 0;
        if (trouble.isEmpty() && (!status.problem.isEmpty() || status.busState == CAN::CanStateBusOff))
            trouble = tr("adapter %1: %2").arg(adapter->getId()).arg(statusText(status));
        passive = passive || status.busState == CAN::CanStateErrorPassive;
    }
    const QString count = tr("%1 of %2 adapters open").arg(open).arg(adapters.size());
    const char *const color = !trouble.isEmpty() ? "#c62828" : passive ? "#b26a00" : open > 0 ? "#2e7d32" : "#757575";
    mLamp->setStyleSheet(
        QStringLiteral("padding: 2px 8px; border-radius: 3px; color: white; background: %1").arg(QLatin1String(color)));
    mLamp->setText(trouble.isEmpty() ? count : count + QStringLiteral(" \u2013 ") + trouble);
}

} // namespace buslink
