// SPDX-License-Identifier: MIT
#pragma once

#include "common/adapter_argument.h"

#include <QtWidgets/QDialog>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QSpinBox;

namespace buslink {

/// Asks for an adapter: type, device, rates and description, each as far as the type has it. What there is to choose
/// from is asked of the factory; the virtual bus is chosen at first.
class AdapterDialog : public QDialog
{
    Q_OBJECT

public:
    explicit AdapterDialog(QWidget *parent = nullptr);

    /// Shows what an adapter was made with.
    void showAdapter(AbstractCanAdapter &adapter);
    /// Makes the adapter that was asked for.
    AdapterArgument create() const;
    QString description() const;

    /// Only an adapter that can be made is taken; otherwise the dialog tells why not and stays.
    void accept() override;

private:
    AbstractCanAdapter::CanAdapterType type() const;
    QString argument() const;
    void addRows(QFormLayout *form);
    void typeChanged();
    void findDevices();
    void offer(const QStringList &devices);
    void showField(QWidget *field, bool visible);

    QFormLayout *mForm;
    QComboBox *mType;
    QComboBox *mDevice;
    QLineEdit *mHost;
    QSpinBox *mPort;
    QComboBox *mBitrate;
    QComboBox *mBaudrate;
    QCheckBox *mHalfDuplex;
    QLineEdit *mDescription;
    QLabel *mError;
};

} // namespace buslink
