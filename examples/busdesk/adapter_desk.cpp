// SPDX-License-Identifier: MIT
#include "busdesk/adapter_desk.h"

#include "busdesk/desk_texts.h"

#include <BusLinkDesk/backends/serial/serial_port_adapter.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QSet>

#include <algorithm>
#include <utility>

namespace buslink {

namespace {

using A = AbstractCanAdapter;

// What the dialog for an adapter does not ask for stays as it was. Parity is left out, since it is not set by the
// value that it reads as.
void keepOtherSettings(const A &from, A &to)
{
    const QSet<int> asked{A::option_CANFD,      A::option_adapterType, A::option_adapterName,
                          A::option_deviceName, A::option_ipAddress,   A::option_portNumber,
                          A::option_baudrate,   A::option_halfDuplex,  A::option_description,
                          A::option_parity,     A::option_isCiA309,    A::option_canBitrateDesc};
    for (int option = 0; option < A::option_lastEnum; ++option) {
        if (!asked.contains(option))
            to.setCanAdapterOption(A::AdapterOption(option), from.getCanAdapterOption(A::AdapterOption(option)));
    }
}

// A stop before the loop has begun is not heard.
void waitForTheLoopToBegin(const A &adapter)
{
    const QDeadlineTimer deadline(1000);
    while (adapter.isRunning() && !adapter.getRunning() && !deadline.hasExpired())
        QThread::msleep(1);
}

} // namespace

AdapterDesk::AdapterDesk() : mSet(std::make_unique<AdapterSet>()) {}

// Adapters announce their end, and nobody listens any more.
AdapterDesk::~AdapterDesk()
{
    const QList<A *> all = adapters();
    for (A *adapter : all) {
        Q_EMIT aboutToClose(adapter);
        adapter->disconnect(this);
    }
}

QList<A *> AdapterDesk::adapters()
{
    QList<A *> list;
    for (const QPointer<A> &adapter : qAsConst(mSet->handler().getAdapterMap()))
        list.append(adapter);
    return list;
}

bool AdapterDesk::isConnected() const
{
    return std::any_of(mStatus.begin(), mStatus.end(),
                       [](const AdapterStatus &status) { return status.open || status.closing; });
}

QString AdapterDesk::name(A *adapter)
{
    return QStringLiteral("adapter %1 (%2, %3)")
        .arg(adapter->getId())
        .arg(typeLabel(adapter->getCanAdapterOption(A::option_adapterType).toInt()), deviceText(adapter));
}

// A call that was queued for an adapter which is gone by now must not meet a new one at the same address.
void AdapterDesk::adopt(A *adapter)
{
    mStatus.insert(adapter, {});
    adapter->setEcho(true);
    const QPointer<A> alive(adapter);
    connect(
        adapter, &A::newCanMessage, this, [this](CAN::CanRxMessage *message) { mInbox.push(*message); },
        Qt::DirectConnection);
    connect(adapter, &A::newCanState, this, [this, alive](CAN::CanState state) { announce(alive, state); });
    connect(adapter, &A::interfaceError, this, [this, alive] { fail(alive, tr("the transport failed")); });
    connect(adapter, &QThread::finished, this, [this, alive] { ended(alive); });
    connect(adapter, &A::newCiA309Response, this, [this, alive](const QString &text) {
        if (alive)
            Q_EMIT told(tr("%1 answers: %2").arg(name(alive), text.trimmed()), false);
    });
    if (auto *const serial = qobject_cast<serialPortAdapter *>(adapter))
        connect(serial, &serialPortAdapter::serialPortError, this,
                [this, alive] { fail(alive, tr("the serial port failed")); });
}

QString AdapterDesk::changed(const QString &error)
{
    QHash<const A *, AdapterStatus> left;
    const QList<A *> all = adapters();
    for (const A *adapter : all)
        left.insert(adapter, mStatus.value(adapter));
    mStatus = left;
    Q_EMIT setChanged();
    Q_EMIT statusChanged();
    return error;
}

QString AdapterDesk::add(AdapterArgument argument, const QString &description)
{
    A *const adapter = argument.adapter.get();
    const QString error = mSet->add(std::move(argument), description);
    if (error.isEmpty())
        adopt(adapter);
    return changed(error);
}

QString AdapterDesk::replace(unsigned short id, AdapterArgument argument, const QString &description)
{
    A *const old = adapter(id);
    if (!argument.adapter)
        return argument.error;
    if (!old)
        return noAdapter(QString::number(id));
    if (old->isRunning() || status(old).open)
        return tr("adapter %1 is connected").arg(id);
    A *const fresh = argument.adapter.release();
    keepOtherSettings(*old, *fresh);
    fresh->setCanAdapterOption(A::option_description, description);
    mSet->handler().updateAdapter(id, fresh);
    adopt(fresh);
    return changed({});
}

QString AdapterDesk::remove(unsigned short id)
{
    if (A *const gone = adapter(id))
        Q_EMIT aboutToClose(gone);
    return changed(mSet->remove(id));
}

QString AdapterDesk::move(unsigned short id, MultiCanAdapterHandler::Direction direction)
{
    return changed(mSet->move(id, direction));
}

QString AdapterDesk::makePrimary(unsigned short id)
{
    return changed(mSet->makePrimary(id));
}

QString AdapterDesk::setActive(unsigned short id, bool active)
{
    return changed(mSet->setActive(id, active));
}

void AdapterDesk::describe(unsigned short id, const QString &description)
{
    if (A *const described = adapter(id))
        described->setCanAdapterOption(A::option_description, description);
    changed({});
}

QString AdapterDesk::save(const QString &path)
{
    return saveSet(path, mSet->saved());
}

QString AdapterDesk::load(const QString &path)
{
    const SetFile file = loadSet(path);
    if (!file.error.isEmpty())
        return file.error;
    auto fresh = std::make_unique<AdapterSet>();
    QString error = fresh->restore(file.adapters);
    if (!error.isEmpty())
        return error;
    const QList<A *> all = adapters();
    for (A *adapter : all) {
        Q_EMIT aboutToClose(adapter);
        adapter->disconnect(this);
    }
    mSet.swap(fresh);
    mStatus.clear();
    const QList<A *> restored = adapters();
    for (A *adapter : restored)
        adopt(adapter);
    return changed({});
}

void AdapterDesk::connectActive()
{
    const QList<A *> all = adapters();
    for (A *adapter : all) {
        AdapterStatus &status = mStatus[adapter];
        if (!adapter->isActiveAdapter() || adapter->isRunning() || status.open)
            continue;
        // The state may come within the call.
        status = {true, false, CAN::CanStateNone, {}};
        if (adapter->open() != CAN::RetOk)
            fail(adapter, tr("it could not be opened"));
    }
    Q_EMIT statusChanged();
}

void AdapterDesk::disconnectAll()
{
    const QList<A *> all = adapters();
    for (A *adapter : all) {
        if (!mStatus[adapter].open && !adapter->isRunning())
            continue;
        Q_EMIT aboutToClose(adapter);
        waitForTheLoopToBegin(*adapter);
        adapter->closeAdapter();
        mStatus[adapter] = {false, adapter->isRunning(), CAN::CanStateNone, mStatus[adapter].problem};
    }
    Q_EMIT statusChanged();
}

// What was announced before the end may arrive behind it.
void AdapterDesk::announce(A *adapter, CAN::CanState state)
{
    const auto status = mStatus.find(adapter);
    if (!adapter || status == mStatus.end() || !status->open || status->busState == state)
        return;
    status->busState = state;
    Q_EMIT told(tr("%1: %2").arg(name(adapter), busStateText(state)),
                state == CAN::CanStateErrorPassive || state == CAN::CanStateBusOff);
    Q_EMIT statusChanged();
}

void AdapterDesk::fail(A *adapter, const QString &problem)
{
    const auto status = mStatus.find(adapter);
    if (!adapter || status == mStatus.end() || !status->problem.isEmpty())
        return;
    status->problem = problem;
    status->open = status->open && adapter->isRunning();
    if (!status->open)
        status->busState = CAN::CanStateNone;
    Q_EMIT told(tr("%1: %2").arg(name(adapter), problem), true);
    Q_EMIT statusChanged();
}

// The end may be that of a run before.
void AdapterDesk::ended(A *adapter)
{
    const auto status = mStatus.find(adapter);
    if (!adapter || status == mStatus.end() || adapter->isRunning())
        return;
    Q_EMIT aboutToClose(adapter);
    *status = {false, false, CAN::CanStateNone, status->problem};
    Q_EMIT statusChanged();
}

} // namespace buslink
