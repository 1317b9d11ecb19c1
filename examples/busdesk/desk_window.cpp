// SPDX-License-Identifier: MIT
#include "busdesk/desk_window.h"

#include "busdesk/adapter_panel.h"
#include "busdesk/bit_timing_page.h"
#include "busdesk/desk_texts.h"
#include "busdesk/frame_table.h"
#include "busdesk/identifier_model.h"
#include "busdesk/load_panel.h"
#include "busdesk/named_widgets.h"
#include "busdesk/payload_delegate.h"
#include "busdesk/replay_panel.h"
#include "busdesk/send_panel.h"
#include "busdesk/trace_panel.h"

#include <QtGui/QGuiApplication>
#include <QtGui/QScreen>
#include <QtWidgets/QLabel>
#include <QtWidgets/QShortcut>
#include <QtWidgets/QSplitter>
#include <QtWidgets/QStatusBar>
#include <QtWidgets/QTabBar>
#include <QtWidgets/QTabWidget>

namespace buslink {

namespace {

// Often enough for the eye, seldom enough for a busy bus.
constexpr int FetchIntervalMs = 50;

} // namespace

DeskWindow::DeskWindow()
    : mAdapterPanel(new AdapterPanel(&mDesk))
    , mTracePanel(new TracePanel(&mDesk))
    , mIdentifiers(new IdentifierModel)
    , mLoadPanel(new LoadPanel(&mDesk))
    , mSendPanel(new SendPanel(&mDesk))
    , mReplayPanel(new ReplayPanel(&mDesk))
    , mPages(named<QTabWidget>("pages", QString()))
    , mLamp(named<QLabel>("lamp", tr("The adapters that are open, and the worst that one of them tells")))
{
    setWindowTitle(tr("Bus desk"));
    auto *const above = new QSplitter;
    above->addWidget(mAdapterPanel);
    above->addWidget(mLoadPanel);
    above->setStretchFactor(0, 1);
    auto *const halves = new QSplitter(Qt::Vertical);
    halves->addWidget(above);
    halves->addWidget(mPages);
    halves->setStretchFactor(1, 1);
    addPages();
    setCentralWidget(halves);
    statusBar()->addWidget(mLamp);
    connect(new QShortcut(QKeySequence::Quit, this), &QShortcut::activated, this, &QWidget::close);
    connect(&mDesk, &AdapterDesk::statusChanged, this, &DeskWindow::showStatus);
    showStatus();
    connect(&mFetch, &QTimer::timeout, this, &DeskWindow::fetchFrames);
    mFetch.start(FetchIntervalMs);
    const QSize screenSize = QGuiApplication::primaryScreen()->availableSize();
    resize(QSize(1280, 900).boundedTo(screenSize));
}

void DeskWindow::addPages()
{
    mPages->addTab(traffic(), tr("&Traffic"));
    mPages->addTab(mSendPanel, tr("Se&nd"));
    mPages->addTab(mReplayPanel, tr("Repla&y"));
    mPages->addTab(new BitTimingPage, tr("&Bit timing"));
    connect(mPages, &QTabWidget::currentChanged, this, &DeskWindow::focusPage);
    connect(mTracePanel, &TracePanel::told, mAdapterPanel, &AdapterPanel::tell);
    connect(mSendPanel, &SendPanel::told, mAdapterPanel, &AdapterPanel::tell);
    connect(mReplayPanel, &ReplayPanel::told, mAdapterPanel, &AdapterPanel::tell);
    connect(mReplayPanel, &ReplayPanel::framesWanted, mTracePanel, &TracePanel::append);
}

// A page that was chosen by its key is worked on by the keyboard. Each has a focus proxy.
void DeskWindow::focusPage()
{
    if (!mPages->tabBar()->hasFocus())
        mPages->currentWidget()->setFocus(Qt::ShortcutFocusReason);
}

// Every identifier above, every frame below.
QWidget *DeskWindow::traffic()
{
    auto *const parts = new QSplitter(Qt::Vertical);
    auto *const table = named<QTableView>("identifiers", QString());
    parts->addWidget(table);
    parts->addWidget(mTracePanel);
    parts->setFocusProxy(table);
    parts->setStretchFactor(0, 2);
    parts->setStretchFactor(1, 3);
    parts->setContentsMargins(9, 9, 9, 0);
    mIdentifiers->setParent(table);
    table->setModel(mIdentifiers);
    table->setItemDelegateForColumn(IdentifierModel::Payload, new PayloadDelegate(table));
    prepareFrameTable(table, {7, 3, 10, 10, 10, 12});
    connect(mTracePanel, &TracePanel::cleared, mIdentifiers, &IdentifierModel::clear);
    return parts;
}

void DeskWindow::fetchFrames()
{
    mDesk.inbox().take(mFrames);
    if (!mFrames.empty()) {
        mTracePanel->append(mFrames);
        mIdentifiers->append(mFrames);
        mLoadPanel->append(mFrames);
    }
    mLoadPanel->showLoad();
    mSendPanel->showSent();
    mReplayPanel->showProgress();
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
    QString warning;
    const QList<AbstractCanAdapter *> adapters = mDesk.adapters();
    for (AbstractCanAdapter *adapter : adapters) {
        const AdapterStatus status = mDesk.status(adapter);
        open += status.open ? 1 : 0;
        const QString text = tr("adapter %1: %2").arg(adapter->getId()).arg(statusText(status));
        if (trouble.isEmpty() && (!status.problem.isEmpty() || status.busState == CAN::CanStateBusOff))
            trouble = text;
        else if (warning.isEmpty() && status.busState == CAN::CanStateErrorPassive)
            warning = text;
    }
    const QString count = tr("%1 of %2 adapters open").arg(open).arg(adapters.size());
    const char *const color = !trouble.isEmpty()   ? "#c62828"
                              : !warning.isEmpty() ? "#b26a00"
                              : open > 0           ? "#2e7d32"
                                                   : "#757575";
    mLamp->setStyleSheet(
        QStringLiteral("padding: 2px 8px; border-radius: 3px; color: white; background: %1").arg(QLatin1String(color)));
    const QString worst = trouble.isEmpty() ? warning : trouble;
    mLamp->setText(worst.isEmpty() ? count : count + QStringLiteral(" \u2013 ") + worst);
}

} // namespace buslink
