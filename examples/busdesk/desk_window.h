// SPDX-License-Identifier: MIT
#pragma once

#include "busdesk/adapter_desk.h"

#include <QtCore/QTimer>
#include <QtWidgets/QMainWindow>

#include <vector>

class QLabel;
class QTabWidget;

namespace buslink {

class AdapterPanel;
class IdentifierModel;
class LoadPanel;
class ReplayPanel;
class SendPanel;
class TracePanel;

/// The window: the adapters above, the pages for what goes over the bus below.
class DeskWindow : public QMainWindow
{
    Q_OBJECT

public:
    DeskWindow();
    /// *Blocks:* until the adapters' threads have ended.
    ~DeskWindow() override;

    AdapterDesk &desk() { return mDesk; }
    AdapterPanel *adapterPanel() { return mAdapterPanel; }
    TracePanel *tracePanel() { return mTracePanel; }
    ReplayPanel *replayPanel() { return mReplayPanel; }

private:
    void addPages();
    QWidget *traffic();
    void focusPage();
    void fetchFrames();
    void showStatus();

    AdapterDesk mDesk;                      // outlives the pages
    std::vector<CAN::CanRxMessage> mFrames; // kept for its memory
    QTimer mFetch;
    AdapterPanel *mAdapterPanel;
    TracePanel *mTracePanel;
    IdentifierModel *mIdentifiers;
    LoadPanel *mLoadPanel;
    SendPanel *mSendPanel;
    ReplayPanel *mReplayPanel;
    QTabWidget *mPages;
    QLabel *mLamp;
};

} // namespace buslink
