// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/can4linux/can4linux_driver_p.h>

#include <sys/ioctl.h>
#include <unistd.h>

namespace buslink {

namespace {

constexpr unsigned long CommandRequest = 0;
constexpr unsigned long ConfigureRequest = 1;

// Every byte has a value, those included that neither request uses.
struct DriverParameters
{
    qint32 cmd = 0;
    qint32 target = 0;
    quint64 val1 = 0;
    quint64 rest[3] = {};
};
static_assert(sizeof(DriverParameters) == 40);

// The driver counts whole frames where others count bytes.
constexpr std::size_t OneFrame = 1;

} // namespace

int moveDescriptor(int fresh, int number)
{
    if (fresh < 0 || ::dup2(fresh, number) < 0)
        return fresh;
    ::close(fresh);
    return number;
}

int commandDriver(int device, DriverCommand command, quint64 value)
{
    DriverParameters parameters;
    parameters.cmd = static_cast<qint32>(command);
    parameters.val1 = value;
    return ::ioctl(device, CommandRequest, &parameters);
}

int configureDriver(int device, DriverTarget target, quint64 value)
{
    DriverParameters parameters;
    // The driver looks at the command for this target alone.
    parameters.cmd = target == DriverTarget::SelfReception ? 1 : 0;
    parameters.target = static_cast<qint32>(target);
    parameters.val1 = value;
    return ::ioctl(device, ConfigureRequest, &parameters);
}

qint64 readDriverFrame(int device, canmsg_t &frame)
{
    return ::read(device, &frame, OneFrame);
}

qint64 writeDriverFrame(int device, const canmsg_t &frame)
{
    return ::write(device, &frame, OneFrame);
}

} // namespace buslink
