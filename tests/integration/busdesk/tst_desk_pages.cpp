// SPDX-License-Identifier: MIT
#include "busdesk/send_panel.h"
#include "busdesk/trace_model.h"
#include "busdesk/trace_panel.h"
#include "desk_user.h"

#include <QtWidgets/QTabBar>
#include <QtWidgets/QTabWidget>
#include <QtWidgets/QTableView>

#include <memory>

class TestDeskPages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        mWindow = std::make_unique<buslink::DeskWindow>();
        mWindow->show();
        QVERIFY(QTest::qWaitForWindowActive(mWindow.get(), PatienceMs));
        mPages = part<QTabWidget>(*mWindow, "pages");
        part<QTableView>(*mWindow, "adapters")->setFocus();
    }

    void cleanup() { mWindow.reset(); }

    void everyPageThatIsChosenHasTheKeyboard_data()
    {
        QTest::addColumn<int>("page");
        QTest::addColumn<QString>("field");
        QTest::newRow("traffic") << 0 << QStringLiteral("identifiers");
        QTest::newRow("send") << 1 << QStringLiteral("sendFrame");
        QTest::newRow("replay") << 2 << QStringLiteral("replayLoad");
        QTest::newRow("bit timing") << 3 << QStringLiteral("clock");
    }

    void everyPageThatIsChosenHasTheKeyboard()
    {
        QFETCH(int, page);
        mPages->setCurrentIndex(page == 0 ? 1 : 0);
        part<QTableView>(*mWindow, "adapters")->setFocus();
        mPages->setCurrentIndex(page);
        QTEST(focused(), "field");
    }

    void whoWalksAlongTheTabsStaysThere()
    {
        mPages->tabBar()->setFocus();
        for (int page = 1; page < mPages->count(); ++page) {
            QTest::keyClick(mPages->tabBar(), Qt::Key_Right);
            QCOMPARE(mPages->currentIndex(), page);
            QCOMPARE(mWindow->focusWidget(), mPages->tabBar());
        }
    }

    void thePageSendHasTheKeyboardWithoutFramesToo()
    {
        mPages->setCurrentIndex(1);
        click(*mWindow, "sendRemove");
        QTRY_VERIFY(mWindow->findChildren<buslink::SendRow *>().isEmpty());
        QCOMPARE(comeBackToSend(), QStringLiteral("addFrame"));
        click(*mWindow, "addFrame");
        QCOMPARE(comeBackToSend(), QStringLiteral("sendFrame"));
    }

    void thePageSendGivesTheKeyboardToTheFirstFrameThatIsLeft()
    {
        mPages->setCurrentIndex(1);
        click(*mWindow, "addFrame");
        QCOMPARE(mWindow->findChildren<buslink::SendRow *>().size(), 2);
        click(*mWindow, "sendRemove"); // that of the first frame
        QTRY_COMPARE(mWindow->findChildren<buslink::SendRow *>().size(), 1);
        QCOMPARE(comeBackToSend(), QStringLiteral("sendFrame"));
        QCOMPARE(mWindow->focusWidget()->parentWidget(), mWindow->findChild<buslink::SendRow *>());
    }

    void buttonsHaveRoomForTheirTexts()
    {
        mPages->setCurrentIndex(1);
        click(*mWindow, "addFrame");
        const auto buttons = mWindow->findChildren<QPushButton *>();
        QVERIFY(buttons.size() > 20);
        for (const QPushButton *button : buttons)
            QVERIFY2(button->minimumWidth() >= button->fontMetrics().horizontalAdvance(button->text()) + 24,
                     qPrintable(button->objectName()));
    }

    void aClearedTraceForgetsTheIdentifiersToo()
    {
        connectTwo(*mWindow);
        CAN::CanMessage frame;
        frame.id = 0x123;
        QCOMPARE(mWindow->desk().adapter(1)->write(frame), CAN::RetOk);
        // The one who sent it and the one who heard it.
        const QAbstractItemModel *const identifiers = part<QTableView>(*mWindow, "identifiers")->model();
        QTRY_COMPARE_WITH_TIMEOUT(identifiers->rowCount(), 2, PatienceMs);
        QCOMPARE(mWindow->tracePanel()->model()->rowCount(), 2);
        click(*mWindow, "clearTrace");
        QCOMPARE(identifiers->rowCount(), 0);
        QCOMPARE(mWindow->tracePanel()->model()->rowCount(), 0);
    }

private:
    QString focused() const
    {
        const QWidget *const widget = mWindow->focusWidget();
        return widget ? widget->objectName() : QString();
    }

    QString comeBackToSend()
    {
        mPages->setCurrentIndex(0);
        mPages->setCurrentIndex(1);
        return focused();
    }

    std::unique_ptr<buslink::DeskWindow> mWindow;
    QTabWidget *mPages = nullptr;
};

QTEST_MAIN(TestDeskPages)
#include "tst_desk_pages.moc"
