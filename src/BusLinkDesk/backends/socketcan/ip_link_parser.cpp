// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/ip_link_parser_p.h>

#include <QtCore/QRegularExpression>

#include <algorithm>
#include <array>
#include <optional>

namespace buslink {

namespace {

struct Maker
{
    AbstractCanAdapter::CanAdapterType type; // As a filter; these numbers have no back end.
    const char *word;
    const char *label;
};

constexpr std::array<Maker, 3> makers{{
    {AbstractCanAdapter::CanAdapterType(7), "systec", "SysTec"},
    {AbstractCanAdapter::CanAdapterType(16), "pcan", "PEAK"},
    {AbstractCanAdapter::CanAdapterType(17), "ixxat", "Ixxat"},
}};

// No match reaches over a point, and one begins at the first keyword of the part that has an end behind it. Behind
// each keyword without an end the expressions would look through all that follows, which in a long text takes minutes.
QString partThatMatches(const QString &details, QLatin1String keyword, QLatin1String end)
{
    const QVector<QStringRef> parts = details.splitRef(QLatin1Char('.'));
    for (const QStringRef &part : parts) {
        const int begin = part.indexOf(keyword);
        if (begin >= 0 && part.lastIndexOf(end) >= begin)
            return part.toString();
    }
    return {};
}

// A captured text without its keyword.
std::optional<QString> captured(const QString &details, const QRegularExpression &expression, QLatin1String keyword,
                                QLatin1String end)
{
    const QRegularExpressionMatch match = expression.match(partThatMatches(details, keyword, end));
    if (!match.hasMatch() || match.lastCapturedIndex() < 1)
        return std::nullopt;
    return match.captured(1).remove(keyword);
}

// The program prints bit/s; cutting three digits makes whole kbit/s of them.
QString inKilobits(const std::optional<QString> &rate)
{
    return rate ? rate->chopped(std::min(rate->size(), 3)) : QString();
}

std::optional<QString> restartTime(const QString &details)
{
    static const QRegularExpression expression(QStringLiteral(R"((?=restart-ms )([^\.]*)(?= \n))"));
    return captured(details, expression, QLatin1String("restart-ms "), QLatin1String(" \n"));
}

std::optional<QString> nominalRate(const QString &details)
{
    static const QRegularExpression expression(QStringLiteral(R"((?=bitrate )([^\.]*)(?= sample))"));
    return captured(details, expression, QLatin1String("bitrate "), QLatin1String(" sample"));
}

std::optional<QString> dataRate(const QString &details)
{
    static const QRegularExpression expression(QStringLiteral(R"((?=dbitrate )([^\.]*)(?= dsample))"));
    return captured(details, expression, QLatin1String("dbitrate "), QLatin1String(" dsample"));
}

// A text that is no number counts as 0.
quint16 toField(const QString &number)
{
    return static_cast<quint16>(number.toUInt());
}

} // namespace

QString interfaceOfDevice(const QString &device)
{
    return device.split(QLatin1Char('|')).constFirst().simplified();
}

QStringList canInterfaceNames(const QString &listing)
{
    QStringList names;
    const QStringList lines = listing.split(QLatin1Char('\n'));
    for (int index = 1; index < lines.size(); ++index) {
        if (!lines[index].contains(QLatin1String("link/can")))
            continue;
        const QStringList header = lines[index - 1].split(QLatin1Char(':'));
        if (header.size() >= 3)
            names.append(header[1].trimmed());
    }
    return names;
}

QString withMakerLabel(const QString &name, const QString &details)
{
    for (const Maker &maker : makers) {
        if (details.contains(QLatin1String(maker.word)))
            return name + QLatin1String(" | ") + QLatin1String(maker.label);
    }
    return name;
}

int timesPassed(const QString &device, const QList<AbstractCanAdapter::CanAdapterType> &types)
{
    if (types.isEmpty())
        return 1;
    int times = 0;
    for (const Maker &maker : makers) {
        if (types.contains(maker.type) && device.contains(QLatin1String(maker.label)))
            ++times;
    }
    return times;
}

QStringList canDevices(const QString &listing, const QList<AbstractCanAdapter::CanAdapterType> &types,
                       const std::function<QString(const QString &name)> &detailsOf)
{
    QStringList devices;
    const QStringList names = canInterfaceNames(listing);
    for (const QString &name : names) {
        const QString device = withMakerLabel(name, detailsOf(name));
        for (int times = timesPassed(device, types); times > 0; --times)
            devices.append(device);
    }
    if (devices.isEmpty() && types.isEmpty())
        devices = QStringList{QStringLiteral("can0"),  QStringLiteral("can1"),  QStringLiteral("can2"),
                              QStringLiteral("vcan0"), QStringLiteral("vcan1"), QStringLiteral("vcan2")};
    return devices;
}

AbstractCanAdapter::SocketCANProps propertiesFromDetails(const QString &details)
{
    const std::optional<QString> dbitrate = dataRate(details);
    AbstractCanAdapter::SocketCANProps properties;
    properties.isFd = dbitrate || details.contains(QLatin1String("mtu 72"));
    properties.bitrate = toField(inKilobits(nominalRate(details)));
    properties.dbitrate = toField(inKilobits(dbitrate));
    properties.restartMs = toField(restartTime(details).value_or(QString()));
    return properties;
}

QString bitrateFromDetails(const QString &details)
{
    return inKilobits(nominalRate(details));
}

} // namespace buslink
