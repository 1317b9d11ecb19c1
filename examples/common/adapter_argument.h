// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QCommandLineOption>
#include <QtCore/QString>

#include <memory>
#include <optional>
#include <string>

class QCommandLineParser;

namespace buslink {

/// What the `--adapter` argument of the programs stands for.
struct AdapterArgument
{
    std::unique_ptr<AbstractCanAdapter> adapter; ///< Configured and not open; null if `error` tells why.
    std::string name;                            ///< Short, without white space, for lines of a log.
    QString error;                               ///< Empty where there is an adapter.
};

/// What other arguments say of the adapter; each kind of adapter takes some of them.
struct AdapterSettings
{
    std::optional<quint64> baudrate; ///< Of a serial port, in bit/s.
    bool halfDuplex = false;         ///< The device sends every frame back.
    std::optional<quint64> bitrate;  ///< Of the bus, in kbit/s.
};

/// Creates the adapter that the argument names.
AdapterArgument createAdapter(const QString &argument, const AdapterSettings &settings = {});

/// Sets the rate of the bus, which the stored form of an adapter does not carry.
void setBusRate(AbstractCanAdapter &adapter, unsigned short kilobitsPerSecond);

/// The argument for a device as the factory lists it; the form of the argument where the kind has no devices.
QString adapterArgumentOf(AbstractCanAdapter::CanAdapterType type, const QString &device);

/// Whether adapters of this kind carry frames; the others carry text.
bool carriesFrames(const AbstractCanAdapter &adapter);

/// The options that choose an adapter, `virtual` where none is given.
class AdapterOptions
{
public:
    AdapterOptions();
    /// Makes the options known.
    void addTo(QCommandLineParser &parser) const;
    /// Creates the adapter that the arguments name.
    AdapterArgument create(const QCommandLineParser &parser) const;
    /// The same for a program that sends frames, which adapters for text are an error for.
    AdapterArgument createForFrames(const QCommandLineParser &parser) const;
    /// The argument of `--adapter`.
    QString text(const QCommandLineParser &parser) const;

private:
    QCommandLineOption mAdapter;
    QCommandLineOption mBaudrate;
    QCommandLineOption mHalfDuplex;
    QCommandLineOption mBitrate;
};

} // namespace buslink
