// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/ip_program_p.h>

#include <QtCore/QProcess>

#include <memory>

namespace buslink {

namespace {

constexpr int WaitMs = 1000;

} // namespace

QString outputOfProgram(const QString &program, const QStringList &arguments)
{
    auto process = std::make_unique<QProcess>();
    process->start(program, arguments, QIODevice::ReadWrite);
    process->waitForFinished(WaitMs);
    const QByteArray output = process->readAllStandardOutput();
    if (process->state() != QProcess::NotRunning) {
        process->kill();
        // What hangs in the kernel does not die, and the destructor would wait for half a minute.
        if (!process->waitForFinished(WaitMs))
            static_cast<void>(process.release());
    }
    return QString::fromUtf8(output.constData());
}

QString outputOfIp(const QStringList &arguments)
{
    return outputOfProgram(QStringLiteral("/sbin/ip"), arguments);
}

} // namespace buslink
