// SPDX-License-Identifier: MIT
#include "desk_on_screen.h"

#include "integration/example_programs.h"

#include <QtCore/QStandardPaths>

namespace {

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

void putOn(QProcess &process, const QString &display)
{
    QProcessEnvironment environment = process.processEnvironment();
    environment.insert(QStringLiteral("DISPLAY"), display);
    environment.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    process.setProcessEnvironment(environment);
}

} // namespace

QString DeskOnScreen::missing()
{
    QStringList tools;
    for (const char *const tool : {"Xvfb", "xdotool", "xclip", "import"}) {
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty())
            tools.append(QString::fromLatin1(tool));
    }
    return tools.join(QLatin1Char(' '));
}

// The server looks for a free number itself. It must not begin anew when the tool that looks for the window is the last
// to leave: the program may be about to connect.
DeskOnScreen::DeskOnScreen(const QStringList &arguments)
    : mScreen(QStringLiteral("Xvfb"), words("-displayfd 1 -noreset -screen 0 1280x900x24 -nolisten tcp"))
{
    mScreen.start();
    if (!QTest::qWaitFor([this] { return mScreen.output().endsWith('\n'); }, PatienceMs))
        qFatal("no screen: %s", mScreen.errors().constData());
    mDisplay = QLatin1Char(':') + QString::fromLatin1(mScreen.output().trimmed());
    mDesk = std::make_unique<Program>(QStringLiteral(BUSDESK_PROGRAM), arguments);
    putOn(mDesk->process(), mDisplay);
    mDesk->process().setStandardErrorFile(QProcess::nullDevice());
    mDesk->start();
}

QByteArray DeskOnScreen::run(const char *tool, const QStringList &arguments)
{
    Program program(QString::fromLatin1(tool), arguments);
    putOn(program.process(), mDisplay);
    program.start();
    const int status = program.waitForStatus();
    if (status != 0)
        qWarning("%s %s: %d %s", tool, qPrintable(arguments.join(QLatin1Char(' '))), status,
                 program.errors().constData());
    return status == 0 ? program.output() : QByteArray();
}

QString DeskOnScreen::windowOf(const QString &title)
{
    Program search(QStringLiteral("xdotool"), words("search --onlyvisible --name") << title);
    putOn(search.process(), mDisplay);
    search.start();
    search.waitForStatus(); // 1 if there is none
    return QString::fromLatin1(search.output().trimmed().split('\n').last());
}

// There is nobody who manages windows, so a new one has the keyboard when it is given it.
bool DeskOnScreen::lookFor(const QString &title)
{
    QString window;
    if (!QTest::qWaitFor([&] { return !(window = windowOf(title)).isEmpty(); }, PatienceMs))
        return false;
    run("xdotool", words("windowfocus --sync") << window);
    return true;
}

bool DeskOnScreen::isGone(const QString &title)
{
    return QTest::qWaitFor([&] { return windowOf(title).isEmpty(); }, PatienceMs);
}

void DeskOnScreen::press(const QStringList &keys)
{
    run("xdotool", QStringList{QStringLiteral("key")} << keys);
}

void DeskOnScreen::type(const QString &text)
{
    run("xdotool", words("type --delay 5") << text);
}

void DeskOnScreen::clickAt(int x, int y)
{
    run("xdotool", words("mousemove --sync") << QString::number(x) << QString::number(y));
    run("xdotool", words("click 1"));
}

QByteArray DeskOnScreen::clipboard()
{
    return run("xclip", words("-selection clipboard -o"));
}

QByteArray DeskOnScreen::photograph()
{
    return run("import", words("-window root png:-"));
}
