// SPDX-License-Identifier: MIT
#pragma once

#include "busdesk/desk_window.h"
#include "common/adapter_argument.h"
#include "support/free_port.h"

#include <QtCore/QTimer>
#include <QtTest/QtTest>
#include <QtWidgets/QAbstractItemView>
#include <QtWidgets/QApplication>
#include <QtWidgets/QDialog>
#include <QtWidgets/QPlainTextEdit>
#include <QtWidgets/QPushButton>

#include <functional>

/// How long a machine under load may take.
constexpr int PatienceMs = 20000;

/// The part of a window that has this name; the test ends where there is none.
template <typename Widget>
Widget *part(QWidget &window, const char *name)
{
    auto *const found = window.findChild<Widget *>(QString::fromLatin1(name));
    if (!found)
        qFatal("the window has no %s", name);
    return found;
}

inline void click(QWidget &window, const char *button)
{
    QTest::mouseClick(part<QPushButton>(window, button), Qt::LeftButton);
}

/// Clicks on a button that opens a dialog, and does something with that.
inline void clickAndAnswer(QWidget &window, const char *button, const std::function<void(QDialog &)> &answer)
{
    QTimer waiting;
    QObject::connect(&waiting, &QTimer::timeout, [&] {
        auto *const dialog = qobject_cast<QDialog *>(QApplication::activeModalWidget());
        if (!dialog)
            return;
        waiting.stop();
        answer(*dialog);
    });
    waiting.start(5);
    click(window, button);
}

/// A row of a table as text; what is ticked is x.
inline QStringList row(const QAbstractItemModel &model, int number)
{
    QStringList texts;
    for (int column = 0; column < model.columnCount(); ++column) {
        const QModelIndex index = model.index(number, column);
        const QVariant tick = index.data(Qt::CheckStateRole);
        texts.append(tick.isValid() ? QString(tick.toInt() == Qt::Checked ? QLatin1String("x") : QLatin1String("-"))
                                    : index.data().toString());
    }
    return texts;
}

inline QStringList row(const QAbstractItemView *view, int number)
{
    return row(*view->model(), number);
}

/// Adds an adapter on the virtual bus.
inline QString addVirtual(buslink::AdapterDesk &desk, quint16 port, const QString &description = QString())
{
    return desk.add(buslink::createAdapter(QStringLiteral("virtual:%1").arg(port)), description);
}

/// Adds two adapters on a bus of their own and connects them: what one sends the other receives.
inline void connectTwo(buslink::DeskWindow &window)
{
    const quint16 port = freeUdpPort();
    QCOMPARE(addVirtual(window.desk(), port, QStringLiteral("sends")), QString());
    QCOMPARE(addVirtual(window.desk(), port, QStringLiteral("listens")), QString());
    QCOMPARE(window.desk().setActive(2, true), QString());
    click(window, "connect");
    QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(port), 2, PatienceMs);
}

/// What the window told last.
inline QString lastMessage(QWidget &window)
{
    return part<QPlainTextEdit>(window, "messages")->toPlainText().section(QLatin1Char('\n'), -1);
}
