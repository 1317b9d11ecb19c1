// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include <BusLinkDesk/backends/socketcan/ip_link_parser_p.h>
#include <BusLinkDesk/backends/socketcan/ip_program_p.h>

namespace {

QString propertiesTextOf(const QString &device)
{
    return buslink::outputOfIp(
        {QStringLiteral("-det"), QStringLiteral("link"), QStringLiteral("show"), buslink::interfaceOfDevice(device)});
}

} // namespace

QStringList SocketCanAdapter::getDeviceList(QList<AbstractCanAdapter::CanAdapterType> types)
{
    const QString listing = buslink::outputOfIp({QStringLiteral("-det"), QStringLiteral("-p"), QStringLiteral("link")});
    return buslink::canDevices(listing, types, [](const QString &name) {
        return buslink::outputOfIp({QStringLiteral("-d"), QStringLiteral("link"), QStringLiteral("show"), name});
    });
}

AbstractCanAdapter::SocketCANProps SocketCanAdapter::getSocketCanProps(QString device)
{
    return buslink::propertiesFromDetails(propertiesTextOf(device));
}

QString SocketCanAdapter::getBitrateOfDevice(QString device)
{
    return buslink::bitrateFromDetails(propertiesTextOf(device));
}
