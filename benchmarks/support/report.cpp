// SPDX-License-Identifier: MIT
#include "support/report.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <cmath>
#include <cstdio>

namespace {

QString number(double value)
{
    return QString::number(value, 'f', std::fabs(value) >= 100 || value == std::floor(value) ? 0 : 3);
}

QString figureText(const QString &what, double value, const QString &unit)
{
    return QStringLiteral("  %1  %2 %3").arg(what, -52).arg(number(value), 12).arg(unit);
}

QJsonObject figureRow(const QString &what, double value, const QString &unit)
{
    return {{QStringLiteral("what"), what}, {QStringLiteral("value"), value}, {QStringLiteral("unit"), unit}};
}

} // namespace

Report::Report(int argc, char **argv, const QString &benchmark) : mBenchmark(benchmark)
{
    for (int index = 1; index < argc; ++index) {
        const QString argument = QString::fromLocal8Bit(argv[index]);
        if (argument == QLatin1String("--quick"))
            mQuick = true;
        else if (argument == QLatin1String("--json") && index + 1 < argc)
            mJsonFile = QString::fromLocal8Bit(argv[++index]);
        else
            qFatal("usage: %s [--quick] [--json FILE|-]", argv[0]);
    }
    std::printf("%s%s\n", qPrintable(benchmark), mQuick ? " (quick run, figures mean nothing)" : "");
}

void Report::note(const QString &text) const
{
    write(QStringLiteral("  ") + text, {{QStringLiteral("note"), text}});
}

void Report::figure(const QString &what, double value, const QString &unit) const
{
    write(figureText(what, value, unit), figureRow(what, value, unit));
}

void Report::compare(const QString &what, double value, const QString &unit, Better better, const QString &peer,
                     double peerValue) const
{
    const double ratio = better == Better::More ? value / peerValue : peerValue / value;
    writeBeside(what, value, unit, peer, peerValue, std::isfinite(ratio) ? std::optional(ratio) : std::nullopt);
}

void Report::beside(const QString &what, double value, const QString &unit, const QString &peer, double peerValue) const
{
    writeBeside(what, value, unit, peer, peerValue, std::nullopt);
}

void Report::writeBeside(const QString &what, double value, const QString &unit, const QString &peer, double peerValue,
                         std::optional<double> ratio) const
{
    QString text = figureText(what, value, unit) + QStringLiteral("   %1: %2").arg(peer, number(peerValue));
    QJsonObject row = figureRow(what, value, unit);
    row.insert(QStringLiteral("peer"), peer);
    row.insert(QStringLiteral("peerValue"), peerValue);
    if (ratio) {
        text += QStringLiteral("   ratio %1").arg(*ratio, 0, 'f', 3);
        row.insert(QStringLiteral("ratio"), *ratio);
    }
    write(text, row);
}

void Report::write(const QString &text, QJsonObject row) const
{
    // A guest has no locale that would know the units.
    std::printf("%s\n", text.toUtf8().constData());
    row.insert(QStringLiteral("benchmark"), mBenchmark);
    if (mQuick)
        row.insert(QStringLiteral("quick"), true);
    if (qEnvironmentVariableIsSet("BUSLINKDESK_GUEST"))
        row.insert(QStringLiteral("kernel"), qEnvironmentVariable("BUSLINKDESK_GUEST"));
    const QByteArray line = QJsonDocument(row).toJson(QJsonDocument::Compact) + '\n';
    if (mJsonFile == QLatin1String("-")) {
        std::fputs(line.constData(), stdout);
    } else if (!mJsonFile.isEmpty()) {
        QFile file(mJsonFile);
        if (!file.open(QIODevice::Append) || file.write(line) < 0)
            qFatal("cannot write %s", qPrintable(mJsonFile));
    }
    std::fflush(stdout);
}
