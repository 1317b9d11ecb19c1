// SPDX-License-Identifier: MIT
#include "common/program.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace buslink {

void complain(const QString &message)
{
    const QByteArray text = (QCoreApplication::applicationName() + QStringLiteral(": ") + message).toLocal8Bit();
    std::fprintf(stderr, "%s\n", text.constData());
}

bool print(const QString &text)
{
    const QByteArray bytes = text.toLocal8Bit();
    const auto size = static_cast<std::size_t>(bytes.size());
    if (std::fwrite(bytes.constData(), 1, size, stdout) == size && std::fflush(stdout) == 0)
        return true;
    complain(QStringLiteral("cannot write to standard output: %1").arg(qt_error_string(errno)));
    return false;
}

void prepareProcess()
{
    std::signal(SIGPIPE, SIG_IGN);
    // Opened the wrong way round, a missing one still reports an error at its first use.
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) < 0)
            static_cast<void>(::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY));
    }
}

void nameApplication(const QString &name)
{
    QCoreApplication::setApplicationName(name);
    QCoreApplication::setApplicationVersion(QStringLiteral(BUSLINKDESK_VERSION));
}

bool parseArguments(QCommandLineParser &parser, int positionalMax)
{
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QStringLiteral("Show this help."));
    parser.addOption(help);
    const QCommandLineOption version = parser.addVersionOption();
    if (!parser.parse(QCoreApplication::arguments())) {
        complain(parser.errorText());
        return false;
    }
    if (parser.isSet(help))
        parser.showHelp(ExitDone);
    if (parser.isSet(version))
        parser.showVersion();
    if (parser.positionalArguments().size() > positionalMax) {
        complain(QStringLiteral("unexpected argument '%1'").arg(parser.positionalArguments().at(positionalMax)));
        return false;
    }
    return true;
}

} // namespace buslink
