// SPDX-License-Identifier: MIT
#include "support/program.h"

#include <QtTest/QtTest>

#include <csignal>

Program::Program(const QString &path, const QStringList &arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    environment.insert(QStringLiteral("QT_LOGGING_TO_CONSOLE"), QStringLiteral("1"));
    environment.remove(QStringLiteral("QT_MESSAGE_PATTERN"));
    mProcess.setProcessEnvironment(environment);
    mProcess.setProgram(path);
    mProcess.setArguments(arguments);
}

Program::~Program()
{
    if (mProcess.state() == QProcess::NotRunning)
        return;
    mProcess.kill();
    mProcess.waitForFinished();
}

void Program::start()
{
    mProcess.start();
    if (!mProcess.waitForStarted())
        qFatal("%s does not start", qPrintable(mProcess.program()));
}

void Program::sendSignal(int signal) const
{
    ::kill(static_cast<pid_t>(mProcess.processId()), signal);
}

int Program::waitForStatus()
{
    const bool ended = QTest::qWaitFor([this] { return mProcess.state() == QProcess::NotRunning; }, 60000);
    return ended && mProcess.exitStatus() == QProcess::NormalExit ? mProcess.exitCode() : -1;
}

QByteArray Program::output()
{
    return mOutput += mProcess.readAllStandardOutput();
}

QByteArray Program::errors()
{
    return mErrors += mProcess.readAllStandardError();
}
