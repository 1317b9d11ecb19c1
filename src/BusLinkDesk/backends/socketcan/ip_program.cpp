// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/ip_program_p.h>

#include <QtCore/QProcess>

namespace buslink {

QString outputOfProgram(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments, QIODevice::ReadWrite);
    process.waitForFinished(1000);
    const QByteArray output = process.readAllStandardOutput();
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
    }
    return QString::fromUtf8(output.constData());
}

QString outputOfIp(const QStringList &arguments)
{
    return outputOfProgram(QStringLiteral("/sbin/ip"), arguments);
}

} // namespace buslink
