// SPDX-License-Identifier: MIT
#include "busdesk/adapter_panel.h"
#include "busdesk/desk_window.h"
#include "busdesk/frame_inbox.h"
#include "desk_user.h"
#include "support/fake_adapter.h"
#include "support/frame_recorder.h"
#include "support/free_port.h"

#include <QtNetwork/QUdpSocket>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QTabWidget>
#include <QtWidgets/QTableView>

#include <memory>

using buslink::DeskWindow;

namespace {

QString virtualLabel()
{
    return QStringLiteral("zorbek Virtual");
}

} // namespace

class TestDeskAdapters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        mPort = freeUdpPort();
        mWindow = std::make_unique<DeskWindow>();
        mWindow->show();
        mTable = part<QTableView>(*mWindow, "adapters");
    }

    void cleanup() { mWindow.reset(); }

    void theDialogOffersWhatTheFactoryAnswers()
    {
        QStringList types;
        QStringList rates;
        bool portAtFirst = false;
        bool portLater = true;
        clickAndAnswer(*mWindow, "add", [&](QDialog &dialog) {
            auto *const type = part<QComboBox>(dialog, "type");
            for (int i = 0; i < type->count(); ++i)
                types.append(type->itemText(i));
            portAtFirst = part<QSpinBox>(dialog, "port")->isVisible();
            type->setCurrentText(QStringLiteral("can4linux"));
            portLater = part<QSpinBox>(dialog, "port")->isVisible();
            auto *const rate = part<QComboBox>(dialog, "bitrate");
            rates = QStringList{rate->itemText(0), rate->currentText()};
            dialog.reject();
        });
        QCOMPARE(types, (QStringList{QStringLiteral("SocketCAN"), QStringLiteral("can4linux"),
                                     QStringLiteral("CiA 309-3"), QStringLiteral("zorbek USB"), virtualLabel()}));
        QVERIFY(portAtFirst);
        QVERIFY(!portLater);
        QCOMPARE(rates.last(), QStringLiteral("500 kbit/s"));
        QCOMPARE(mTable->model()->rowCount(), 0);
    }

    void anAdapterThatWasAskedForStandsInTheTable()
    {
        addInDialog(QStringLiteral("on the table"));
        QCOMPARE(mTable->model()->rowCount(), 1);
        QCOMPARE(row(mTable, 0), (QStringList{QStringLiteral("1"), virtualLabel(), device(), QStringLiteral("no rate"),
                                              QStringLiteral("on the table"), QStringLiteral("x"), QStringLiteral("x"),
                                              QStringLiteral("closed")}));
    }

    void anAdapterThatCannotBeMadeLeavesTheDialogOpen_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("error");
        QTest::newRow("interface") << QStringLiteral(
            "SocketCAN") << QStringLiteral("'' is no interface name, which has 1 to 15 bytes and no blank within");
        QTest::newRow("serial port") << QStringLiteral("zorbek USB")
                                     << QStringLiteral("' ' is no serial port, as ttyUSB0");
        QTest::newRow("host") << QStringLiteral("CiA 309-3")
                              << QStringLiteral("':45674' is no host, with a port behind a colon if need be");
    }

    void anAdapterThatCannotBeMadeLeavesTheDialogOpen()
    {
        QFETCH(QString, type);
        QString error;
        bool open = false;
        clickAndAnswer(*mWindow, "add", [&](QDialog &dialog) {
            part<QComboBox>(dialog, "type")->setCurrentText(type);
            part<QComboBox>(dialog, "device")->clearEditText();
            dialog.accept();
            error = part<QLabel>(dialog, "error")->text();
            open = dialog.isVisible();
            dialog.reject();
        });
        QTEST(error, "error");
        QVERIFY(open);
    }

    void aSecondAdapterLikeTheFirstIsRefusedAloud()
    {
        addInDialog(QStringLiteral("same"));
        addInDialog(QStringLiteral("same"));
        QCOMPARE(mTable->model()->rowCount(), 1);
        QVERIFY(lastMessage(*mWindow).endsWith(QStringLiteral("an adapter like that is in the set")));
    }

    void editingChangesWhatWasAskedAndKeepsTheRoles()
    {
        addInDialog(QStringLiteral("first"));
        mWindow->desk().adapter(1)->setCanAdapterOption(AbstractCanAdapter::option_usdoId, 7);
        mTable->selectRow(0);
        const quint16 other = freeUdpPort();
        int shown = 0;
        clickAndAnswer(*mWindow, "edit", [&](QDialog &dialog) {
            shown = part<QSpinBox>(dialog, "port")->value();
            part<QSpinBox>(dialog, "port")->setValue(other);
            part<QLineEdit>(dialog, "description")->setText(QStringLiteral("changed"));
            dialog.accept();
        });
        QCOMPARE(shown, int(mPort));
        QCOMPARE(row(mTable, 0), (QStringList{QStringLiteral("1"), virtualLabel(), QStringLiteral("port %1").arg(other),
                                              QStringLiteral("no rate"), QStringLiteral("changed"), QStringLiteral("x"),
                                              QStringLiteral("x"), QStringLiteral("closed")}));
        AbstractCanAdapter *const adapter = mWindow->desk().adapter(1);
        QCOMPARE(adapter->getCanAdapterOption(AbstractCanAdapter::option_usdoId).toInt(), 7);
    }

    void adaptersMoveUpAndDownWithinTheSet()
    {
        addThree();
        mTable->selectRow(0);
        QVERIFY(!part<QPushButton>(*mWindow, "up")->isEnabled());
        click(*mWindow, "down");
        QCOMPARE(descriptions(), (QStringList{QStringLiteral("b"), QStringLiteral("a"), QStringLiteral("c")}));
        click(*mWindow, "down");
        QCOMPARE(descriptions(), (QStringList{QStringLiteral("b"), QStringLiteral("c"), QStringLiteral("a")}));
        QVERIFY(!part<QPushButton>(*mWindow, "down")->isEnabled());
        click(*mWindow, "up");
        QCOMPARE(descriptions(), (QStringList{QStringLiteral("b"), QStringLiteral("a"), QStringLiteral("c")}));
    }

    void removingThePrimaryAdapterMakesTheNextOnePrimary()
    {
        addThree();
        mTable->selectRow(0);
        click(*mWindow, "remove");
        QCOMPARE(descriptions(), (QStringList{QStringLiteral("b"), QStringLiteral("c")}));
        QCOMPARE(row(mTable, 0).mid(5, 2), (QStringList{QStringLiteral("x"), QStringLiteral("x")}));
    }

    void rolesAreTickedInTheTable()
    {
        addThree();
        tick(1, 5, true);
        QCOMPARE(row(mTable, 1).mid(5, 2), (QStringList{QStringLiteral("x"), QStringLiteral("-")}));
        tick(2, 6, true);
        QCOMPARE(row(mTable, 2).mid(5, 2), (QStringList{QStringLiteral("x"), QStringLiteral("x")}));
        QCOMPARE(row(mTable, 0).mid(5, 2), (QStringList{QStringLiteral("x"), QStringLiteral("-")}));
        tick(2, 5, false);
        QVERIFY(lastMessage(*mWindow).endsWith(QStringLiteral("adapter 3 is the primary one")));
        QCOMPARE(row(mTable, 2).mid(5, 2), (QStringList{QStringLiteral("x"), QStringLiteral("x")}));
    }

    void aSavedSetComesBackWithItsOrderAndRoles()
    {
        addThree();
        tick(1, 6, true);
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("set.json"));
        mWindow->adapterPanel()->save(path);
        QList<QStringList> saved;
        for (int i = 0; i < 3; ++i)
            saved.append(row(mTable, i));

        mTable->selectRow(1);
        click(*mWindow, "remove");
        mWindow->adapterPanel()->load(path);
        QCOMPARE(mTable->model()->rowCount(), 3);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(row(mTable, i), saved.at(i));
    }

    void aDamagedFileLeavesTheSetAsItIs()
    {
        addThree();
        QTemporaryFile file;
        QVERIFY(file.open());
        file.write("{}");
        file.close();
        mWindow->adapterPanel()->load(file.fileName());
        QCOMPARE(descriptions(), (QStringList{QStringLiteral("a"), QStringLiteral("b"), QStringLiteral("c")}));
        QVERIFY(!lastMessage(*mWindow).isEmpty());
    }

    void connectOpensTheActiveAdaptersAlone()
    {
        addThree();
        tick(1, 5, true);
        click(*mWindow, "connect");
        const QString open = QStringLiteral("open, error active");
        QTRY_COMPARE_WITH_TIMEOUT(states(), (QStringList{open, open, QStringLiteral("closed")}), PatienceMs);
        QCOMPARE(part<QLabel>(*mWindow, "lamp")->text(), QStringLiteral("2 of 3 adapters open"));
        QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(mPort), 2, PatienceMs);
        mTable->selectRow(0);
        QVERIFY(!part<QPushButton>(*mWindow, "edit")->isEnabled());

        click(*mWindow, "disconnect");
        const QString closed = QStringLiteral("closed");
        QTRY_COMPARE_WITH_TIMEOUT(states(), (QStringList{closed, closed, closed}), PatienceMs);
        QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(mPort), 0, PatienceMs);
        QVERIFY(!part<QPushButton>(*mWindow, "disconnect")->isEnabled());
    }

    void anAdapterCanBeConnectedAgainAtOnce()
    {
        QCOMPARE(addVirtual(mWindow->desk(), mPort), QString());
        for (int i = 0; i < 3; ++i) {
            click(*mWindow, "connect");
            QCOMPARE(states(), QStringList{QStringLiteral("open, error active")});
            click(*mWindow, "disconnect");
            QTRY_COMPARE_WITH_TIMEOUT(states(), QStringList{QStringLiteral("closed")}, PatienceMs);
        }
    }

    void aTransportThatFailsIsSeenInTheTableTheLampAndTheMessages()
    {
        QUdpSocket occupant;
        QVERIFY(occupant.bind(QHostAddress::AnyIPv4, 0, QAbstractSocket::DontShareAddress));
        mPort = occupant.localPort();
        QCOMPARE(addVirtual(mWindow->desk(), mPort), QString());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("could not bind")));
        click(*mWindow, "connect");
        QTRY_COMPARE_WITH_TIMEOUT(states(), QStringList{QStringLiteral("the transport failed")}, PatienceMs);
        QCOMPARE(part<QLabel>(*mWindow, "lamp")->text(),
                 QStringLiteral("0 of 1 adapters open \u2013 adapter 1: the transport failed"));
        QVERIFY(lastMessage(*mWindow).endsWith(
            QStringLiteral("adapter 1 (zorbek Virtual, port %1): the transport failed").arg(mPort)));
        QTRY_VERIFY_WITH_TIMEOUT(!part<QPushButton>(*mWindow, "disconnect")->isEnabled(), PatienceMs);

        occupant.close();
        click(*mWindow, "connect");
        QCOMPARE(states(), QStringList{QStringLiteral("open, error active")});
    }

    void anAdapterThatIsOpenCanBeRemoved()
    {
        QCOMPARE(addVirtual(mWindow->desk(), mPort), QString());
        click(*mWindow, "connect");
        mTable->selectRow(0);
        click(*mWindow, "remove");
        QCOMPARE(mTable->model()->rowCount(), 0);
        QCOMPARE(udpSocketsOnPort(mPort), 0);
        QCOMPARE(part<QLabel>(*mWindow, "lamp")->text(), QStringLiteral("0 of 0 adapters open"));
    }

    void busStatesAreSeenInTheTableAndTheLamp_data()
    {
        QTest::addColumn<CAN::CanState>("state");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QColor>("color");
        QTest::newRow("warning") << CAN::CanStateErrorPassive << QStringLiteral("open, error passive")
                                 << QColor(0xB2, 0x6A, 0x00);
        QTest::newRow("trouble") << CAN::CanStateBusOff << QStringLiteral("open, bus off") << QColor(0xC6, 0x28, 0x28);
    }

    void busStatesAreSeenInTheTableAndTheLamp()
    {
        QFETCH(CAN::CanState, state);
        QFETCH(QString, text);
        QFETCH(QColor, color);
        auto adapter = std::make_unique<FakeAdapter>();
        FakeAdapter *const bus = adapter.get();
        QCOMPARE(mWindow->desk().add({std::move(adapter), {}, {}}, QString()), QString());
        click(*mWindow, "connect");
        Q_EMIT bus->newCanState(state);
        QTRY_COMPARE_WITH_TIMEOUT(states(), QStringList{text}, PatienceMs);
        QCOMPARE(mTable->model()->index(0, 7).data(Qt::ForegroundRole).value<QColor>(), color);
        const auto *const lamp = part<QLabel>(*mWindow, "lamp");
        QCOMPARE(lamp->text(), QStringLiteral("1 of 1 adapters open \u2013 adapter 1: ") + text);
        QVERIFY(lamp->styleSheet().contains(color.name()));
        QVERIFY(lastMessage(*mWindow).endsWith(text.section(QLatin1String(", "), 1)));
        Q_EMIT bus->newCanState(CAN::CanStateErrorActive);
        QTRY_COMPARE_WITH_TIMEOUT(lamp->text(), QStringLiteral("1 of 1 adapters open"), PatienceMs);
    }

    void everyFieldTellsWhatItIsFor()
    {
        QStringList silent;
        const auto fields = mWindow->findChildren<QWidget *>();
        for (const QWidget *field : fields) {
            // Qt's own parts are called otherwise.
            const bool named = !field->objectName().isEmpty() && field->objectName().at(0).isLower()
                               && !field->objectName().startsWith(QLatin1String("qt_"));
            const bool isTold = field->inherits("QAbstractButton") || field->inherits("QLineEdit")
                                || field->inherits("QComboBox") || field->inherits("QAbstractSpinBox")
                                || field->inherits("QProgressBar");
            if (named && isTold && field->toolTip().isEmpty())
                silent.append(field->objectName());
        }
        QCOMPARE(silent.join(QLatin1Char(' ')), QString());
        for (const char *const table : {"adapters", "trace", "identifiers"}) {
            const QAbstractItemModel *const model = part<QTableView>(*mWindow, table)->model();
            for (int column = 0; column < model->columnCount(); ++column)
                QVERIFY(!model->headerData(column, Qt::Horizontal, Qt::ToolTipRole).toString().isEmpty());
        }
    }

    void eachKeyDoesOneThingOnEachPage()
    {
        auto *const pages = part<QTabWidget>(*mWindow, "pages");
        for (int page = 0; page < pages->count(); ++page) {
            pages->setCurrentIndex(page);
            QStringList keys;
            for (int i = 0; i < pages->count(); ++i)
                keys.append(QKeySequence::mnemonic(pages->tabText(i)).toString());
            const auto buttons = mWindow->findChildren<QAbstractButton *>();
            for (const QAbstractButton *button : buttons) {
                if (button->isVisibleTo(mWindow.get()))
                    keys.append(QKeySequence::mnemonic(button->text()).toString());
            }
            const auto labels = mWindow->findChildren<QLabel *>();
            for (const QLabel *label : labels) {
                if (label->buddy() && label->isVisibleTo(mWindow.get()))
                    keys.append(QKeySequence::mnemonic(label->text()).toString());
            }
            keys.removeAll(QString());
            keys.sort();
            QStringList once = keys;
            once.removeDuplicates();
            QCOMPARE(keys, once);
            QVERIFY(keys.size() > 12);
        }
    }

    void aFullInboxCountsWhatItLoses()
    {
        buslink::FrameInbox inbox(2);
        CAN::CanRxMessage frame;
        for (quint32 id = 1; id <= 3; ++id) {
            frame.message.id = id;
            inbox.push(frame);
        }
        QCOMPARE(inbox.lostFrames(), qint64(1));
        std::vector<CAN::CanRxMessage> frames;
        inbox.take(frames);
        QCOMPARE(frames.size(), std::size_t(2));
        QCOMPARE(frames.back().message.id, 2U);
        inbox.push(frame);
        inbox.take(frames);
        QCOMPARE(frames.size(), std::size_t(1));
        QCOMPARE(frames.back().message.id, 3U);
    }

private:
    QString device() const { return QStringLiteral("port %1").arg(mPort); }

    void addInDialog(const QString &description)
    {
        clickAndAnswer(*mWindow, "add", [&](QDialog &dialog) {
            part<QSpinBox>(dialog, "port")->setValue(mPort);
            part<QLineEdit>(dialog, "description")->setText(description);
            dialog.accept();
        });
    }

    void addThree()
    {
        for (const char *const description : {"a", "b", "c"})
            QCOMPARE(addVirtual(mWindow->desk(), mPort, QString::fromLatin1(description)), QString());
    }

    void tick(int number, int column, bool on)
    {
        mTable->model()->setData(mTable->model()->index(number, column), on ? Qt::Checked : Qt::Unchecked,
                                 Qt::CheckStateRole);
    }

    QStringList descriptions() const { return columnTexts(4); }
    QStringList states() const { return columnTexts(7); }

    QStringList columnTexts(int column) const
    {
        QStringList texts;
        for (int i = 0; i < mTable->model()->rowCount(); ++i)
            texts.append(row(mTable, i).at(column));
        return texts;
    }

    quint16 mPort = 0;
    std::unique_ptr<DeskWindow> mWindow;
    QTableView *mTable = nullptr;
};

QTEST_MAIN(TestDeskAdapters)
#include "tst_desk_adapters.moc"
