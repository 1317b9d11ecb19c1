// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QVector>
#include <QtNetwork/QHostAddress>

#include <functional>

/// Two hosts on one network, as network namespaces of this process that a pair of interfaces joins. A thread is on
/// the host that its creator was on, and sockets stay on the host where they were made.
class TwoHosts
{
public:
    /// Leaves the network of the machine for the two, to the first of them. Needs a process with a single thread.
    TwoHosts();
    ~TwoHosts();
    TwoHosts(const TwoHosts &) = delete;
    TwoHosts &operator=(const TwoHosts &) = delete;

    /// Why there are no two hosts; empty if there are.
    const QString &error() const { return mError; }
    QHostAddress here() const { return QHostAddress(QStringLiteral("10.88.0.1")); }
    QHostAddress there() const { return QHostAddress(QStringLiteral("10.88.0.2")); }

    /// Does something on the second host.
    void onOtherHost(const std::function<void()> &action) const { inNamespace(mOther, action); }
    /// Does something on a third host, which has nothing but its loopback interface.
    void onLoneHost(const std::function<void()> &action) const { inNamespace(mLone, action); }

    /// Runs a program on the host that the thread is on. What it had to say if it failed, else empty.
    static QString run(const QString &commandLine);

private:
    int makeNamespace();
    void inNamespace(int descriptor, const std::function<void()> &action) const;
    QString connectHosts() const;

    int mHome = -1;
    int mOther = -1;
    int mLone = -1;
    QString mError;
};

/// A UDP datagram as it came over the wire.
struct WireDatagram
{
    QHostAddress destination;
    quint16 port = 0;
    QByteArray payload;

    bool operator==(const WireDatagram &other) const
    {
        return destination == other.destination && port == other.port && payload == other.payload;
    }
};

/// Hears every IPv4 packet that comes in on an interface of the host that the thread is on, before anything judges it.
class WireTap
{
public:
    explicit WireTap(const char *interfaceName);
    ~WireTap();
    WireTap(const WireTap &) = delete;
    WireTap &operator=(const WireTap &) = delete;

    /// The datagrams so far.
    const QVector<WireDatagram> &datagrams();

private:
    int mSocket = -1;
    QVector<WireDatagram> mDatagrams;
};
