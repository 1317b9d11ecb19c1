// SPDX-License-Identifier: MIT
#pragma once

#include "busdesk/adapter_desk.h"

#include <QtWidgets/QMainWindow>

class QLabel;
class QTabWidget;

namespace buslink {

class AdapterPanel;

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

private:
    void showStatus();

    AdapterDesk mDesk; // outlives the pages
    AdapterPanel *mAdapterPanel;
    QTabWidget *mPages;
    QLabel *mLamp;
};

} // namespace buslink
