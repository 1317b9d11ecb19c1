// SPDX-License-Identifier: MIT
#include "common/adapter_argument.h"

#include "common/number_argument.h"

#include <BusLinkDesk/factory/can_adapter_factory.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QRegularExpression>
#include <QtCore/QStringList>

#include <algorithm>
#include <array>
#include <limits>
#include <net/if.h>

namespace buslink {

namespace {

using A = AbstractCanAdapter;

constexpr quint64 DefaultBaudrate = 115200;
constexpr quint64 DefaultBitrate = 500;

// A kind of adapter: its word, its form for people, the further options it takes, and what makes one of
// the text behind the word's colon; null without a colon.
struct AdapterKind
{
    const char *word;
    const char *form;
    A::CanAdapterType type;
    bool isSerial;
    bool hasBitrate;
    void (*create)(const QString &parameter, const AdapterSettings &settings, AdapterArgument &result);
};

void make(A::CanAdapterType type, const QString &device, AdapterArgument &result)
{
    result.adapter.reset(CanAdapterFactory::createCanAdapter(type, device));
    result.adapter->setCanAdapterOption(A::option_deviceName, device);
}

std::optional<quint64> portOf(const QString &text, AdapterArgument &result)
{
    const std::optional<quint64> port = numberBetween(text, 1, 65535);
    if (!port)
        result.error = QStringLiteral("'%1' is no port, which is a number from 1 to 65535").arg(text);
    return port;
}

void createVirtual(const QString &parameter, const AdapterSettings &, AdapterArgument &result)
{
    const std::optional<quint64> port = parameter.isNull() ? std::nullopt : portOf(parameter, result);
    if (!result.error.isEmpty())
        return;
    make(A::CanAdapterTypeVirtual, QStringLiteral("zorbek Virtual"), result);
    if (port)
        result.adapter->setCanAdapterOption(A::option_portNumber, *port);
    // The time of day falls back at midnight, and with it the pauses of a recording would be lost.
    result.adapter->setCanAdapterOption(A::option_continuousTimestamp, true);
}

// Names that no interface can have must not reach the adapter, which ends the process for them.
bool canNameAnInterface(const QString &name)
{
    const int bytes = name.toLocal8Bit().size();
    return bytes > 0 && bytes < IFNAMSIZ
           && std::none_of(name.begin(), name.end(), [](QChar character) { return character.isSpace(); });
}

void createSocketCan(const QString &parameter, const AdapterSettings &, AdapterArgument &result)
{
    const QString name = parameter.section(QLatin1Char('|'), 0, 0).simplified();
    if (!canNameAnInterface(name)) {
        result.error = QStringLiteral("'%1' is no interface name, which has 1 to %2 bytes and no blank within")
                           .arg(name, QString::number(IFNAMSIZ - 1));
        return;
    }
    // With an empty label, since the adapter takes a name of one character for "can0".
    make(A::CanAdapterTypeSocketCan, name + QLatin1Char('|'), result);
    // This loop delivers classic frames as well, while the other one would cut CAN FD frames.
    result.adapter->setCanAdapterOption(A::option_CANFD, true);
    result.name = name.toStdString();
}

// The name of a device as the last part of a path, which is what fits into a line of a log.
bool takeDevice(const QString &parameter, const char *what, AdapterArgument &result)
{
    const QString name = parameter.section(QLatin1Char('/'), -1).simplified();
    if (name.isEmpty() || name.contains(QLatin1Char(' '))) {
        result.error = QStringLiteral("'%1' is no %2").arg(parameter, QLatin1String(what));
        return false;
    }
    result.name = name.toStdString();
    return true;
}

void createUsb(const QString &parameter, const AdapterSettings &settings, AdapterArgument &result)
{
    if (!takeDevice(parameter, "serial port, as ttyUSB0", result))
        return;
    // The adapter takes what stands in front of a dash for a label.
    if (result.name.find('-') != std::string::npos) {
        result.error = QStringLiteral("'%1' has a dash, which no name of a serial port may have here; give the port it "
                                      "stands for, as ttyUSB0")
                           .arg(parameter);
        return;
    }
    make(A::CanAdapterTypeUsb, QString::fromStdString(result.name), result);
    result.adapter->setCanAdapterOption(A::option_baudrate, settings.baudrate.value_or(DefaultBaudrate));
    result.adapter->setCanAdapterOption(A::option_halfDuplex, settings.halfDuplex);
}

void createCan4linux(const QString &parameter, const AdapterSettings &settings, AdapterArgument &result)
{
    if (!takeDevice(parameter, "device, as /dev/can0", result))
        return;
    make(A::CanAdapterTypeCan4linux, parameter, result);
    setBusRate(*result.adapter, static_cast<unsigned short>(settings.bitrate.value_or(DefaultBitrate)));
}

void createGateway(const QString &parameter, const AdapterSettings &, AdapterArgument &result)
{
    // The colons of an IPv6 address stand in brackets.
    static const QRegularExpression form(QStringLiteral(R"(^(?:\[([^][\s]+)\]|([^][:\s]+))(?::(.*))?$)"));
    const QRegularExpressionMatch match = form.match(parameter);
    if (!match.hasMatch()) {
        result.error = QStringLiteral("'%1' is no host, with a port behind a colon if need be").arg(parameter);
        return;
    }
    const QString host = match.captured(1) + match.captured(2);
    const std::optional<quint64> port = match.capturedStart(3) < 0 ? std::nullopt : portOf(match.captured(3), result);
    if (!result.error.isEmpty())
        return;
    make(A::CanAdapterTypeCiA309, QString(), result);
    result.adapter->setCanAdapterOption(A::option_ipAddress, host);
    if (port)
        result.adapter->setCanAdapterOption(A::option_portNumber, *port);
    // The adapter does without a device name, but a registry tells adapters apart by it.
    const QString effectivePort = result.adapter->getCanAdapterOption(A::option_portNumber).toString();
    result.adapter->setCanAdapterOption(A::option_deviceName, host + QLatin1Char(':') + effectivePort);
}

constexpr std::array adapterKinds = {
    AdapterKind{"virtual", "virtual[:port]", A::CanAdapterTypeVirtual, false, false, createVirtual},
    AdapterKind{"socketcan", "socketcan:interface", A::CanAdapterTypeSocketCan, false, false, createSocketCan},
    AdapterKind{"usb", "usb:port", A::CanAdapterTypeUsb, true, false, createUsb},
    AdapterKind{"can4linux", "can4linux:device", A::CanAdapterTypeCan4linux, false, true, createCan4linux},
    AdapterKind{"cia309", "cia309:host[:port]", A::CanAdapterTypeCiA309, false, false, createGateway},
};

QString knownForms()
{
    QStringList forms;
    for (const AdapterKind &kind : adapterKinds)
        forms.append(QLatin1String(kind.form));
    const QString last = forms.takeLast();
    return QStringLiteral("%1 or %2").arg(forms.join(QStringLiteral(", ")), last);
}

QString uselessSetting(const AdapterKind &kind, const AdapterSettings &settings)
{
    const QString word = QLatin1String(kind.word);
    if (settings.baudrate && !kind.isSerial)
        return QStringLiteral("--baudrate has no meaning for %1").arg(word);
    if (settings.halfDuplex && !kind.isSerial)
        return QStringLiteral("--half-duplex has no meaning for %1").arg(word);
    if (settings.bitrate && !kind.hasBitrate)
        return QStringLiteral("--bitrate cannot be set for %1").arg(word);
    return {};
}

} // namespace

void setBusRate(AbstractCanAdapter &adapter, unsigned short kilobitsPerSecond)
{
    adapter.setBitrate(kilobitsPerSecond);
    // For whoever asks the adapter for its rate: it does not tell what it was given.
    adapter.setCanAdapterOption(A::option_bitrate, kilobitsPerSecond);
}

AdapterArgument createAdapter(const QString &argument, const AdapterSettings &settings)
{
    const int colon = argument.indexOf(QLatin1Char(':'));
    const QString word = argument.left(colon);
    AdapterArgument result;
    for (const AdapterKind &kind : adapterKinds) {
        if (word != QLatin1String(kind.word))
            continue;
        result.name = kind.word;
        result.error = uselessSetting(kind, settings);
        // An empty parameter is one as well: mid() of the whole length gives an empty text, not a null one.
        if (result.error.isEmpty())
            kind.create(colon < 0 ? QString() : argument.mid(colon + 1), settings, result);
        return result;
    }
    result.error = QStringLiteral("unknown adapter '%1', expected %2").arg(argument, knownForms());
    return result;
}

QString adapterArgumentOf(AbstractCanAdapter::CanAdapterType type, const QString &device)
{
    const auto *const kind = std::find_if(adapterKinds.begin(), adapterKinds.end(),
                                          [type](const AdapterKind &one) { return one.type == type; });
    if (kind == adapterKinds.end())
        return device;
    const bool named = !device.isEmpty() && type != A::CanAdapterTypeVirtual;
    return named ? QLatin1String(kind->word) + QLatin1Char(':') + device : QString::fromLatin1(kind->form);
}

bool carriesFrames(const AbstractCanAdapter &adapter)
{
    return !adapter.getCanAdapterOption(A::option_isCiA309).toBool();
}

AdapterOptions::AdapterOptions()
    : mAdapter(QStringLiteral("adapter"), QStringLiteral("Adapter: %1. Default: virtual.").arg(knownForms()),
               QStringLiteral("adapter"), QStringLiteral("virtual"))
    , mBaudrate(QStringLiteral("baudrate"),
                QStringLiteral("usb: rate of the serial port in bit/s. Default: %1.").arg(DefaultBaudrate),
                QStringLiteral("rate"))
    , mHalfDuplex(QStringLiteral("half-duplex"), QStringLiteral("usb: the device sends every frame back."))
    , mBitrate(QStringLiteral("bitrate"),
               QStringLiteral("can4linux: rate of the bus in kbit/s. Default: %1.").arg(DefaultBitrate),
               QStringLiteral("rate"))
{}

void AdapterOptions::addTo(QCommandLineParser &parser) const
{
    parser.addOptions({mAdapter, mBaudrate, mHalfDuplex, mBitrate});
}

AdapterArgument AdapterOptions::create(const QCommandLineParser &parser) const
{
    AdapterSettings settings;
    settings.halfDuplex = parser.isSet(mHalfDuplex);
    const auto take = [&parser](const QCommandLineOption &option, quint64 max, std::optional<quint64> &value) {
        if (parser.isSet(option))
            value = numberBetween(parser.value(option), 1, max);
        return value || !parser.isSet(option);
    };
    AdapterArgument wrong;
    if (!take(mBaudrate, std::numeric_limits<qint32>::max(), settings.baudrate))
        wrong.error = QStringLiteral("--baudrate takes a number from 1: '%1'").arg(parser.value(mBaudrate));
    else if (!take(mBitrate, std::numeric_limits<quint16>::max(), settings.bitrate))
        wrong.error = QStringLiteral("--bitrate takes a number from 1 to 65535: '%1'").arg(parser.value(mBitrate));
    return wrong.error.isEmpty() ? createAdapter(text(parser), settings) : std::move(wrong);
}

AdapterArgument AdapterOptions::createForFrames(const QCommandLineParser &parser) const
{
    AdapterArgument argument = create(parser);
    if (argument.adapter && !carriesFrames(*argument.adapter)) {
        argument.adapter.reset();
        argument.error = QStringLiteral("%1: a gateway takes text commands and no frames").arg(text(parser));
    }
    return argument;
}

QString AdapterOptions::text(const QCommandLineParser &parser) const
{
    return parser.value(mAdapter);
}

} // namespace buslink
