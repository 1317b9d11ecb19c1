// SPDX-License-Identifier: MIT
#include "busdesk/adapter_dialog.h"

#include "busdesk/named_widgets.h"

#include <BusLinkDesk/factory/can_adapter_factory.h>

#include <QtCore/QThread>
#include <QtWidgets/QCheckBox>
#include <QtWidgets/QComboBox>
#include <QtWidgets/QDialogButtonBox>
#include <QtWidgets/QFormLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QLineEdit>
#include <QtWidgets/QSpinBox>

#include <memory>

namespace buslink {

namespace {

using A = AbstractCanAdapter;

constexpr int DefaultPort = 45674;
constexpr int DefaultBitrate = 500;

} // namespace

AdapterDialog::AdapterDialog(QWidget *parent)
    : QDialog(parent)
    , mForm(new QFormLayout(this))
    , mType(named<QComboBox>("type", tr("What kind of bus access it is")))
    , mDevice(named<QComboBox>("device", tr("Name of the interface, serial port or character device")))
    , mHost(named<QLineEdit>("host", tr("Name or address of the gateway")))
    , mPort(named<QSpinBox>("port", tr("UDP port of the virtual bus, TCP port of a gateway")))
    , mBitrate(named<QComboBox>("bitrate", tr("Nominal rate of the bus in kbit/s")))
    , mBaudrate(named<QComboBox>("baudrate", tr("Rate of the serial line in bit/s")))
    , mHalfDuplex(named<QCheckBox>("halfDuplex", tr("The device sends every frame back")))
    , mDescription(named<QLineEdit>("description", tr("Your own words; they tell like adapters apart")))
    , mError(named<QLabel>("error", QString()))
{
    setWindowTitle(tr("Adapter"));
    const auto types = CanAdapterFactory::getImplementedAdapters();
    for (const auto &[label, number] : types)
        mType->addItem(label, int(number));
    mDevice->setEditable(true);
    mPort->setRange(1, 65535);
    mPort->setValue(DefaultPort);
    mBaudrate->setEditable(true);
    mBaudrate->addItems({QStringLiteral("115200"), QStringLiteral("230400"), QStringLiteral("460800"),
                         QStringLiteral("921600"), QStringLiteral("1000000")});
    mError->setStyleSheet(QStringLiteral("color: #c62828"));
    mError->setWordWrap(true);
    addRows(mForm);
    connect(mType, qOverload<int>(&QComboBox::currentIndexChanged), this, [this] { typeChanged(); });
    mType->setCurrentIndex(mType->findData(A::CanAdapterTypeVirtual));
    typeChanged();
}

void AdapterDialog::addRows(QFormLayout *form)
{
    form->addRow(tr("&Type"), mType);
    form->addRow(tr("&Device"), mDevice);
    form->addRow(tr("&Host"), mHost);
    form->addRow(tr("&Port"), mPort);
    form->addRow(tr("Bus &rate (kbit/s)"), mBitrate);
    form->addRow(tr("&Line rate (bit/s)"), mBaudrate);
    form->addRow(QString(), mHalfDuplex);
    mHalfDuplex->setText(tr("Hal&f duplex"));
    form->addRow(tr("D&escription"), mDescription);
    form->addRow(mError);
    auto *const buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &AdapterDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    setMinimumWidth(420);
}

A::CanAdapterType AdapterDialog::type() const
{
    return A::CanAdapterType(mType->currentData().toInt());
}

void AdapterDialog::showField(QWidget *field, bool visible)
{
    field->setVisible(visible);
    if (QWidget *const label = mForm->labelForField(field))
        label->setVisible(visible);
}

void AdapterDialog::typeChanged()
{
    const A::CanAdapterType kind = type();
    const bool gateway = kind == A::CanAdapterTypeCiA309;
    const bool serial = kind == A::CanAdapterTypeUsb;
    const QList<CAN::CANBitrateDesc> rates = CanAdapterFactory::getSupportedBitrates(kind, false);
    mBitrate->clear();
    for (const CAN::CANBitrateDesc &rate : rates)
        mBitrate->addItem(rate.label, rate.bitrate);
    mBitrate->setCurrentIndex(mBitrate->findData(DefaultBitrate));

    showField(mDevice, !gateway && kind != A::CanAdapterTypeVirtual);
    showField(mHost, gateway);
    showField(mPort, gateway || kind == A::CanAdapterTypeVirtual);
    // A gateway is told its rate in its own words.
    showField(mBitrate, CanAdapterFactory::isBaudrateChangeable(kind) && !gateway && !rates.isEmpty());
    showField(mBaudrate, serial);
    showField(mHalfDuplex, serial);
    mError->clear();
    mDevice->clearEditText();
    findDevices();
    adjustSize();
}

void AdapterDialog::offer(const QStringList &devices)
{
    const QString written = mDevice->currentText();
    mDevice->clear();
    mDevice->addItems(devices);
    if (!written.isEmpty())
        mDevice->setEditText(written);
}

// Asking for CAN interfaces runs a program for seconds where there are many.
void AdapterDialog::findDevices()
{
    if (type() != A::CanAdapterTypeSocketCan) {
        offer(CanAdapterFactory::getAdvInterfaceList(type()).keys());
        return;
    }
    offer({});
    const auto found = std::make_shared<QStringList>();
    QThread *const search = QThread::create(
        [found] { *found = CanAdapterFactory::getAdvInterfaceList(A::CanAdapterTypeSocketCan).keys(); });
    connect(search, &QThread::finished, this, [this, found] {
        if (type() == A::CanAdapterTypeSocketCan)
            offer(*found);
    });
    connect(search, &QThread::finished, search, &QObject::deleteLater);
    search->start();
}

void AdapterDialog::showAdapter(A &adapter)
{
    mType->setCurrentIndex(mType->findData(adapter.getCanAdapterOption(A::option_adapterType)));
    const QString device = adapter.getCanAdapterOption(A::option_deviceName).toString();
    mDevice->setEditText(device.section(QLatin1Char('|'), 0, 0));
    mHost->setText(adapter.getCanAdapterOption(A::option_ipAddress).toString());
    mPort->setValue(adapter.getCanAdapterOption(A::option_portNumber).toInt());
    const auto rate = adapter.getCanAdapterOption(A::option_canBitrateDesc).value<CAN::CANBitrateDesc>();
    if (rate.bitrate > 0)
        mBitrate->setCurrentIndex(mBitrate->findData(rate.bitrate));
    if (type() == A::CanAdapterTypeUsb)
        mBaudrate->setEditText(adapter.getCanAdapterOption(A::option_baudrate).toString());
    mHalfDuplex->setChecked(adapter.getCanAdapterOption(A::option_halfDuplex).toBool());
    mDescription->setText(adapter.getCanAdapterOption(A::option_description).toString());
}

QString AdapterDialog::argument() const
{
    const QString device = mDevice->currentText().trimmed();
    switch (type()) {
    case A::CanAdapterTypeVirtual:
        return QStringLiteral("virtual:%1").arg(mPort->value());
    case A::CanAdapterTypeCiA309:
        return QStringLiteral("cia309:%1:%2").arg(mHost->text().trimmed()).arg(mPort->value());
    default:
        // A blank is a device that none has, while without any the form of an argument would come back.
        return adapterArgumentOf(type(), device.isEmpty() ? QStringLiteral(" ") : device);
    }
}

AdapterArgument AdapterDialog::create() const
{
    AdapterSettings settings;
    if (type() == A::CanAdapterTypeCan4linux)
        settings.bitrate = mBitrate->currentData().toUInt();
    if (type() == A::CanAdapterTypeUsb) {
        settings.baudrate = mBaudrate->currentText().toUInt();
        settings.halfDuplex = mHalfDuplex->isChecked();
        if (*settings.baudrate == 0) {
            AdapterArgument wrong;
            wrong.error = tr("the line rate is a number of bit/s");
            return wrong;
        }
    }
    return createAdapter(argument(), settings);
}

QString AdapterDialog::description() const
{
    return mDescription->text();
}

void AdapterDialog::accept()
{
    const AdapterArgument argument = create();
    if (argument.adapter)
        QDialog::accept();
    else
        mError->setText(argument.error);
}

} // namespace buslink
