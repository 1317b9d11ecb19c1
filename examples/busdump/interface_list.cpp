// SPDX-License-Identifier: MIT
#include "busdump/interface_list.h"

#include "common/adapter_argument.h"

#include <BusLinkDesk/factory/can_adapter_factory.h>

#include <QtCore/QFile>
#include <QtCore/QStringList>

#include <algorithm>
#include <array>
#include <net/if.h>

namespace buslink {

namespace {

constexpr int Columns = 5;
using Row = std::array<QString, Columns>;

// Numbers stand at the right edge of their columns.
constexpr std::array<bool, Columns> alignRight{false, false, false, true, true};

bool exists(const QString &name)
{
    return ::if_nametoindex(name.toLocal8Bit().constData()) != 0;
}

QString knownOrDash(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("-") : text;
}

QString rateText(quint16 rate)
{
    return rate == 0 ? QStringLiteral("-") : QString::number(rate);
}

Row rowOf(const ListedInterface &interface)
{
    return {interface.name, knownOrDash(interface.maker),
            interface.properties.isFd ? QStringLiteral("yes") : QStringLiteral("no"),
            rateText(interface.properties.bitrate), rateText(interface.properties.dbitrate)};
}

QString lineOf(const Row &row, const std::array<int, Columns> &widths)
{
    QString line;
    for (std::size_t column = 0; column < row.size(); ++column) {
        if (column > 0)
            line += QStringLiteral("  ");
        line +=
            alignRight[column] ? row[column].rightJustified(widths[column]) : row[column].leftJustified(widths[column]);
    }
    return line + QLatin1Char('\n');
}

} // namespace

QVector<ListedInterface> findInterfaces()
{
    QVector<ListedInterface> found;
    const QStringList devices =
        CanAdapterFactory::getAdvInterfaceList(AbstractCanAdapter::CanAdapterTypeSocketCan).keys();
    for (const QString &device : devices) {
        ListedInterface interface;
        interface.name = device.section(QLatin1Char('|'), 0, 0).simplified();
        interface.maker = device.section(QLatin1Char('|'), 1).simplified();
        // A link with a peer is listed with it.
        if (!exists(interface.name))
            interface.name = interface.name.section(QLatin1Char('@'), 0, 0);
        // Where there are no interfaces, the library gives names that are usual.
        if (!exists(interface.name))
            continue;
        interface.properties = CanAdapterFactory::getSocketCanProps(interface.name);
        found.append(interface);
    }
    return found;
}

QVector<ListedAdapter> findOtherAdapters()
{
    QVector<ListedAdapter> found;
    const auto types = CanAdapterFactory::getImplementedAdapters();
    for (const auto &[label, type] : types) {
        if (type == AbstractCanAdapter::CanAdapterTypeSocketCan)
            continue;
        const QStringList devices = CanAdapterFactory::getAdvInterfaceList(type).keys();
        for (const QString &device : devices) {
            if (!device.startsWith(QLatin1Char('/')) || QFile::exists(device))
                found.append({adapterArgumentOf(type, device), label});
        }
    }
    return found;
}

QString adapterTable(const QVector<ListedAdapter> &adapters)
{
    const QString heading = QStringLiteral("OTHER ADAPTERS");
    int width = heading.size();
    for (const ListedAdapter &adapter : adapters)
        width = std::max(width, adapter.argument.size());
    QString table = heading.leftJustified(width) + QStringLiteral("  KIND\n");
    for (const ListedAdapter &adapter : adapters)
        table += QStringLiteral("%1  %2\n").arg(adapter.argument.leftJustified(width), adapter.label);
    return table;
}

QString interfaceTable(const QVector<ListedInterface> &interfaces)
{
    if (interfaces.isEmpty())
        return QStringLiteral("no CAN interfaces found\n");
    QVector<Row> rows{{QStringLiteral("INTERFACE"), QStringLiteral("MAKER"), QStringLiteral("FD"),
                       QStringLiteral("KBIT/S"), QStringLiteral("DATA KBIT/S")}};
    for (const ListedInterface &interface : interfaces)
        rows.append(rowOf(interface));
    std::array<int, Columns> widths{};
    for (const Row &row : rows) {
        for (std::size_t column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    QString table;
    for (const Row &row : rows)
        table += lineOf(row, widths);
    return table;
}

} // namespace buslink
