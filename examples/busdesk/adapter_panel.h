// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QWidget>

class QPlainTextEdit;
class QPushButton;
class QTableView;

namespace buslink {

class AdapterDesk;
class AdapterTableModel;

/// The set of adapters: the table, what can be done with it, and what there was to tell.
class AdapterPanel : public QWidget
{
    Q_OBJECT

public:
    explicit AdapterPanel(AdapterDesk *desk);

    /// Adds a line to what was told.
    void tell(const QString &text, bool isProblem);
    /// Saves the set to a file, or takes it from there; tells why if it could not be done.
    void save(const QString &path);
    void load(const QString &path);

private:
    void addButtons();
    QPushButton *addButton(const char *name, const QString &text, const QString &toolTip);
    void add();
    void edit();
    void remove();
    void move(bool up);
    void saveAs();
    void restore();
    void select(unsigned short id);
    void enableButtons();
    unsigned short selectedId() const;
    void report(const QString &error);

    AdapterDesk *mDesk;
    AdapterTableModel *mModel;
    QTableView *mTable;
    QPlainTextEdit *mMessages;
    QPushButton *mConnect;
    QPushButton *mDisconnect;
    QPushButton *mEdit;
    QPushButton *mRemove;
    QPushButton *mUp;
    QPushButton *mDown;
};

} // namespace buslink
