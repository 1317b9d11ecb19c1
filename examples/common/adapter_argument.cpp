// SPDX-License-Identifier: MIT
#include "common/adapter_argument.h"

#include "common/number_argument.h"

#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>

#include <QtCore/QStringList>

#include <algorithm>
#include <array>
#include <net/if.h>
#include <optional>

namespace buslink {

namespace {

// A kind of adapter: its word, its form for people, and what makes one of the text behind the word's
// colon; null without a colon.
struct AdapterKind
{
    const char *word;
    const char *form;
    void (*create)(const QString &parameter, AdapterArgument &result);
};

void createVirtual(const QString &parameter, AdapterArgument &result)
{
    auto adapter = std::make_unique<DemoCanAdapter>(QStringLiteral("examples"));
    if (!parameter.isNull()) {
        const std::optional<quint64> port = numberBetween(parameter, 1, 65535);
        if (!port) {
            result.error = QStringLiteral("'%1' is no port, which is a number from 1 to 65535").arg(parameter);
            return;
        }
        adapter->setCanAdapterOption(AbstractCanAdapter::option_portNumber, *port);
    }
    // The time of day falls back at midnight, and with it the pauses of a recording would be lost.
    adapter->setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, true);
    result.adapter = std::move(adapter);
}

// Names that no interface can have must not reach the adapter, which ends the process for them.
bool canNameAnInterface(const QString &name)
{
    const int bytes = name.toLocal8Bit().size();
    return bytes > 0 && bytes < IFNAMSIZ
           && std::none_of(name.begin(), name.end(), [](QChar character) { return character.isSpace(); });
}

void createSocketCan(const QString &parameter, AdapterArgument &result)
{
    const QString name = parameter.section(QLatin1Char('|'), 0, 0).simplified();
    if (!canNameAnInterface(name)) {
        result.error = QStringLiteral("'%1' is no interface name, which has 1 to %2 bytes and no blank within")
                           .arg(name, QString::number(IFNAMSIZ - 1));
        return;
    }
    // With an empty label, since the adapter takes a name of one character for "can0".
    auto adapter = std::make_unique<SocketCanAdapter>(name + QLatin1Char('|'));
    // This loop delivers classic frames as well, while the other one would cut CAN FD frames.
    adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, true);
    result.name = name.toStdString();
    result.adapter = std::move(adapter);
}

constexpr std::array adapterKinds = {
    AdapterKind{"virtual", "virtual[:port]", createVirtual},
    AdapterKind{"socketcan", "socketcan:interface", createSocketCan},
};

QString knownForms()
{
    QStringList forms;
    for (const AdapterKind &kind : adapterKinds)
        forms.append(QLatin1String(kind.form));
    return forms.join(QStringLiteral(" or "));
}

} // namespace

AdapterArgument createAdapter(const QString &argument)
{
    const int colon = argument.indexOf(QLatin1Char(':'));
    const QString word = argument.left(colon);
    AdapterArgument result;
    for (const AdapterKind &kind : adapterKinds) {
        if (word != QLatin1String(kind.word))
            continue;
        result.name = kind.word;
        // An empty parameter is one as well: mid() of the whole length gives an empty text, not a null one.
        kind.create(colon < 0 ? QString() : argument.mid(colon + 1), result);
        return result;
    }
    result.error = QStringLiteral("unknown adapter '%1', expected %2").arg(argument, knownForms());
    return result;
}

QCommandLineOption adapterOption()
{
    return {QStringLiteral("adapter"), QStringLiteral("Adapter: %1. Default: virtual.").arg(knownForms()),
            QStringLiteral("adapter"), QStringLiteral("virtual")};
}

} // namespace buslink
