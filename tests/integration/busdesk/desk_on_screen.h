// SPDX-License-Identifier: MIT
#pragma once

#include "support/program.h"

#include <QtCore/QString>

#include <memory>

/// The program busdesk in a window on a screen of its own that nobody sees, and a person's hands in front of it. What
/// is pressed or typed goes to the window that was looked for last.
class DeskOnScreen
{
public:
    /// What is missing on this machine to have such a screen; empty if nothing is.
    static QString missing();

    /// Starts the screen, and the program on it.
    explicit DeskOnScreen(const QStringList &arguments);

    /// Waits for a window with this title, and gives it the keyboard. Returns whether there is one.
    bool lookFor(const QString &title);
    /// Waits for windows with this title to go. Returns whether none is left.
    bool isGone(const QString &title);
    /// Presses keys, each by its name, as alt+c.
    void press(const QStringList &keys);
    void type(const QString &text);
    /// Clicks with the left button at a place of the screen.
    void clickAt(int x, int y);
    /// The text that was copied last.
    QByteArray clipboard();
    /// A picture of the screen, as PNG.
    QByteArray photograph();
    /// Waits until the program has ended; its exit status.
    int waitForEnd() { return mDesk->waitForStatus(); }

private:
    QString windowOf(const QString &title);
    QByteArray run(const char *tool, const QStringList &arguments);

    Program mScreen;
    QString mDisplay;
    std::unique_ptr<Program> mDesk;
};
