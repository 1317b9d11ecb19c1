// SPDX-License-Identifier: MIT
#pragma once

#include "support/free_port.h"
#include "support/program.h"

#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <memory>

// What the tests of the example programs share.

inline const QString buscycle = QStringLiteral(BUSCYCLE_PROGRAM);
inline const QString busdump = QStringLiteral(BUSDUMP_PROGRAM);
inline const QString busplay = QStringLiteral(BUSPLAY_PROGRAM);
inline const QString bussets = QStringLiteral(BUSSETS_PROGRAM);
constexpr int PatienceMs = 60000;
/// What `--adapter` takes, as the programs tell it.
constexpr const char *adapterForms =
    "virtual[:port], socketcan:interface, usb:port, can4linux:device or cia309:host[:port]";

inline QString virtualBus(quint16 port)
{
    return QStringLiteral("virtual:%1").arg(port);
}

// The lines of a log without their time stamps and interface names.
inline QList<QByteArray> framesOf(const QByteArray &log)
{
    QList<QByteArray> frames;
    for (const QByteArray &line : log.split('\n')) {
        if (!line.isEmpty())
            frames.append(line.mid(line.lastIndexOf(' ') + 1));
    }
    return frames;
}

// Lines whose identifiers count from 0, a given time apart.
inline QByteArray countingLog(int count, double secondsApart)
{
    QByteArray log;
    for (int i = 0; i < count; ++i)
        log += '(' + QByteArray::number(i * secondsApart, 'f', 6) + ") can0 "
               + QByteArray::number(i, 16).rightJustified(8, '0') + "#\n";
    return log;
}

/// Starts the programs.
class ExamplePrograms
{
protected:
    QString writeFile(const QByteArray &content)
    {
        QFile file(mFolder.filePath(QStringLiteral("test.log")));
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("cannot write the test's log");
        return file.fileName();
    }

    // Starts busdump and waits until it hears the bus.
    static std::unique_ptr<Program> listen(quint16 port, const QStringList &arguments = {})
    {
        auto program =
            std::make_unique<Program>(busdump, QStringList{QStringLiteral("--adapter"), virtualBus(port)} + arguments);
        startListening(*program, port);
        return program;
    }
    static void startListening(Program &program, quint16 port)
    {
        program.start();
        if (!QTest::qWaitFor([port] { return udpSocketsOnPort(port) > 0; }, PatienceMs))
            qFatal("busdump does not listen");
    }

    static std::unique_ptr<Program> play(quint16 port, const QStringList &arguments)
    {
        auto program =
            std::make_unique<Program>(busplay, QStringList{QStringLiteral("--adapter"), virtualBus(port)} + arguments);
        program->start();
        return program;
    }

private:
    QTemporaryDir mFolder;
};
