// SPDX-License-Identifier: MIT
#include "support/mock_serial_port.h"

#include <fcntl.h>
#include <termios.h>
#include <umockdev.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <memory>

namespace {

// A process has one of these: another one would take over from the first.
UMockdevTestbed *testbed()
{
    // Taken down at the end, since it keeps a folder.
    static const std::unique_ptr<UMockdevTestbed, decltype(&g_object_unref)> only(umockdev_testbed_new(),
                                                                                  &g_object_unref);
    return only.get();
}

QByteArray description(const QByteArray &name)
{
    static constexpr const char *text = "P: /devices/usb1/1-1/%N/tty/%N\n"
                                        "N: %N\n"
                                        "E: DEVNAME=/dev/%N\n"
                                        "E: SUBSYSTEM=tty\n"
                                        "E: MAJOR=188\n"
                                        "E: MINOR=%M\n"
                                        "E: ID_VENDOR_ID=0403\n"
                                        "E: ID_MODEL_ID=6001\n"
                                        "A: dev=188:%M\\n\n"
                                        "L: device=../../../%N\n"
                                        "\n"
                                        "P: /devices/usb1/1-1/%N\n"
                                        "E: SUBSYSTEM=usb-serial\n"
                                        "E: DRIVER=ftdi_sio\n"
                                        "L: driver=../../../../bus/usb-serial/drivers/ftdi_sio\n";
    static int minor = 0;
    return QByteArray(text).replace("%N", name).replace("%M", QByteArray::number(minor++));
}

// The entry of a pseudo-terminal stays behind when its port is removed, and the next port cannot have the
// terminal of this number then.
void forgetTerminal(int farEnd)
{
    std::array<char, 64> path{};
    if (::ptsname_r(farEnd, path.data(), path.size()) != 0)
        return;
    char *const folder = umockdev_testbed_get_root_dir(testbed());
    ::unlink((QByteArray(folder) + "/dev/.ptymap/" + QByteArray(path.data()).replace('/', '_')).constData());
    g_free(folder);
}

} // namespace

MockSerialPort::MockSerialPort(const QString &mark)
{
    static int count = 0;
    mName = QStringLiteral("ttyUSB%1x%2%3").arg(::getpid()).arg(mark).arg(count++);
    const QByteArray name = mName.toLatin1();
    mPath = "/sys/devices/usb1/1-1/" + name + "/tty/" + name;
    GError *error = nullptr;
    if (!umockdev_testbed_add_from_string(testbed(), description(name).constData(), &error))
        qFatal("mocked serial port: %s", error ? error->message : "no reason given");
    mFarEnd = umockdev_testbed_get_dev_fd(testbed(), ("/dev/" + name).constData());
    // A terminal echoes and edits lines unless told otherwise, also before and after a program has it open.
    termios settings{};
    if (::tcgetattr(mFarEnd, &settings) != 0)
        qFatal("mocked serial port: no settings");
    ::cfmakeraw(&settings);
    if (::tcsetattr(mFarEnd, TCSANOW, &settings) != 0 || ::fcntl(mFarEnd, F_SETFL, O_NONBLOCK) != 0)
        qFatal("mocked serial port: settings are refused");
}

MockSerialPort::~MockSerialPort()
{
    unplug();
}

void MockSerialPort::hide()
{
    if (!mListed)
        return;
    mListed = false;
    umockdev_testbed_uevent(testbed(), mPath.constData(), "remove");
    umockdev_testbed_remove_device(testbed(), mPath.constData());
}

void MockSerialPort::unplug()
{
    hide();
    if (mFarEnd < 0)
        return;
    forgetTerminal(mFarEnd);
    ::close(mFarEnd);
    mFarEnd = -1;
}
