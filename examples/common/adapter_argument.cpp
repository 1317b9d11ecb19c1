// SPDX-License-Identifier: MIT
#include "common/adapter_argument.h"

#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>

#include <QtCore/QStringList>

#include <algorithm>
#include <array>
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

std::optional<quint16> portNumber(const QString &text)
{
    const bool digits =
        std::all_of(text.begin(), text.end(), [](QChar c) { return c >= QLatin1Char('0') && c <= QLatin1Char('9'); });
    bool inRange = false;
    const quint16 port = text.toUShort(&inRange);
    return digits && inRange && port > 0 ? std::optional(port) : std::nullopt;
}

void createVirtual(const QString &parameter, AdapterArgument &result)
{
    auto adapter = std::make_unique<DemoCanAdapter>(QStringLiteral("examples"));
    if (!parameter.isNull()) {
        const std::optional<quint16> port = portNumber(parameter);
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

constexpr std::array adapterKinds = {
    AdapterKind{"virtual", "virtual[:port]", createVirtual},
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
