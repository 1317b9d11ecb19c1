// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <BusLinkDesk/backends/socketcan/ip_link_parser_p.h>

#include <QtCore/QRegularExpression>

#include <algorithm>

// Reads any text as a listing of links and as the details of one.

namespace {

using Types = QList<AbstractCanAdapter::CanAdapterType>;

const Types makers{AbstractCanAdapter::CanAdapterType(7), AbstractCanAdapter::CanAdapterType(16),
                   AbstractCanAdapter::CanAdapterType(17)};

void requireListing(const QString &text)
{
    const QStringList names = buslink::canInterfaceNames(text);
    require(names.size() <= text.count(QLatin1String("link/can")));
    for (const QString &name : names) {
        require(name == name.trimmed());
        require(!name.contains(QLatin1Char(':')) && !name.contains(QLatin1Char('\n')));
        require(text.contains(name));
    }

    int asked = 0;
    const auto details = [&](const QString &name) {
        require(name == names.value(asked++));
        return text;
    };
    const QStringList devices = buslink::canDevices(text, {}, details);
    require(asked == names.size());
    require(devices.size() == (names.isEmpty() ? 6 : names.size()));
    asked = 0;
    require(buslink::canDevices(text, makers, details).size() <= 3 * names.size());
    require(buslink::canDevices(text, {AbstractCanAdapter::CanAdapterTypeSocketCan}, [](const QString &) {
                return QString();
            }).isEmpty());
}

// The plain meaning of an expression, however long it takes.
QString capturedBy(const char *expression, const QString &text, const char *keyword)
{
    return QRegularExpression(QString::fromLatin1(expression)).match(text).captured(1).remove(QLatin1String(keyword));
}

void requireExpressions(const QString &text, const AbstractCanAdapter::SocketCANProps &properties)
{
    const auto field = [](const QString &number) { return static_cast<quint16>(number.toUInt()); };
    const QString rate = capturedBy(R"((?=bitrate )([^\.]*)(?= sample))", text, "bitrate ");
    const QString dataRate = capturedBy(R"((?=dbitrate )([^\.]*)(?= dsample))", text, "dbitrate ");
    const QString restart = capturedBy("(?=restart-ms )([^\\.]*)(?= \\n)", text, "restart-ms ");
    require(buslink::bitrateFromDetails(text) == rate.left(std::max(0, rate.size() - 3)));
    require(properties.dbitrate == field(dataRate.left(std::max(0, dataRate.size() - 3))));
    require(properties.restartMs == field(restart));
}

void requireDetails(const QString &text)
{
    const AbstractCanAdapter::SocketCANProps properties = buslink::propertiesFromDetails(text);
    require(!text.contains(QLatin1String("mtu 72")) || properties.isFd);
    require(properties.dbitrate == 0 || properties.isFd);
    requireExpressions(text, properties);
    const QString rate = buslink::bitrateFromDetails(text);
    require(properties.bitrate == static_cast<quint16>(rate.toUInt()));
    require(!rate.contains(QLatin1Char('.')));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<int>(size));
    requireListing(text);
    requireDetails(text);
    const QString name = buslink::interfaceOfDevice(text);
    require(name == name.simplified() && !name.contains(QLatin1Char('|')));
    return 0;
}
