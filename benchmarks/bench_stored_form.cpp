// SPDX-License-Identifier: MIT
// The stored form of an adapter, beside streams of the same values without it. The bit rates, which have no stream
// form, end reading either way, with warnings that are dropped here.
#include "support/fake_adapter.h"
#include "support/report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDataStream>

#include <cstdio>

namespace {

using Values = std::vector<QVariant>;

Values valuesOf(const AbstractCanAdapter &adapter)
{
    Values values;
    for (int option = 0; option < AbstractCanAdapter::option_lastEnum; ++option)
        values.push_back(adapter.getCanAdapterOption(static_cast<AbstractCanAdapter::AdapterOption>(option)));
    return values;
}

QByteArray bareWrite(const Values &values)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_5_12);
    for (const QVariant &value : values)
        stream << value;
    return bytes;
}

Values bareRead(const QByteArray &bytes)
{
    Values values;
    QDataStream stream(bytes);
    stream.setVersion(QDataStream::Qt_5_12);
    while (stream.status() == QDataStream::Ok && !stream.atEnd()) {
        QVariant value;
        stream >> value;
        values.push_back(value);
    }
    return values;
}

template <typename Call, typename BareCall>
void reportPair(const Report &report, const QString &what, Call call, BareCall bareCall)
{
    const int calls = report.quick() ? 20 : 2000;
    const auto microseconds = [calls](auto &repeated) {
        return secondsOf([&] {
                   for (int count = 0; count < calls; ++count)
                       repeated();
               })
               * 1e6 / calls;
    };
    const auto [ours, bare] = mediansInTurn(
        report.quick() ? 1 : 15, [&] { return microseconds(call); }, [&] { return microseconds(bareCall); });
    report.compare(what, ours, QStringLiteral("µs"), Report::Better::Less, QStringLiteral("stream of the values"),
                   bare);
}

} // namespace

int main(int argc, char **argv)
{
    const Report report(argc, argv, QStringLiteral("stored form of an adapter"));
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type == QtFatalMsg)
            std::fprintf(stderr, "%s\n", qPrintable(text));
    });
    FakeAdapter adapter(nullptr);
    const QByteArray stored = adapter.getValuesAsByteArray();
    const Values values = valuesOf(adapter);
    const QByteArray streamed = bareWrite(values);
    if (bareRead(streamed).size() <= AbstractCanAdapter::option_canFDBusParams)
        qFatal("what was written cannot be read");
    reportPair(
        report, QStringLiteral("written"), [&] { adapter.getValuesAsByteArray(); }, [&] { bareWrite(values); });
    reportPair(
        report, QStringLiteral("read"), [&] { adapter.setValuesFromByteArray(stored); }, [&] { bareRead(streamed); });
    return 0;
}
