// SPDX-License-Identifier: MIT
#include "busdump/interface_list.h"

#include "common/adapter_argument.h"

#include <BusLinkDesk/factory/can_adapter_factory.h>

#include <QtCore/QFile>
#include <QtCore/QStringList>

#include <algorithm>
#include <net/if.h>

namespace buslink {

namespace {

using Row = QStringList;

enum class Edge { Left, Right };

// Columns two blanks apart, each as wide as its widest text and aligned at its edge; the last one, where it is aligned
// at the left, has no blanks behind it.
QString tableOf(const QVector<Row> &rows, const QVector<Edge> &edges)
{
    QVector<int> widths(edges.size());
    for (const Row &row : rows) {
        for (int column = 0; column < row.size(); ++column)
            widths[column] = std::max(widths[column], row[column].size());
    }
    QString table;
    for (const Row &row : rows) {
        QStringList cells;
        for (int column = 0; column < row.size(); ++column) {
            const bool isLast = column == row.size() - 1;
            if (edges[column] == Edge::Right)
                cells.append(row[column].rightJustified(widths[column]));
            else
                cells.append(isLast ? row[column] : row[column].leftJustified(widths[column]));
        }
        table += cells.join(QStringLiteral("  ")) + QLatin1Char('\n');
    }
    return table;
}

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
    QVector<Row> rows{{QStringLiteral("OTHER ADAPTERS"), QStringLiteral("KIND")}};
    for (const ListedAdapter &adapter : adapters)
        rows.append({adapter.argument, adapter.label});
    return tableOf(rows, {Edge::Left, Edge::Left});
}

QString interfaceTable(const QVector<ListedInterface> &interfaces)
{
    if (interfaces.isEmpty())
        return QStringLiteral("no CAN interfaces found\n");
    QVector<Row> rows{{QStringLiteral("INTERFACE"), QStringLiteral("MAKER"), QStringLiteral("FD"),
                       QStringLiteral("KBIT/S"), QStringLiteral("DATA KBIT/S")}};
    for (const ListedInterface &interface : interfaces)
        rows.append(rowOf(interface));
    return tableOf(rows, {Edge::Left, Edge::Left, Edge::Left, Edge::Right, Edge::Right});
}

} // namespace buslink
