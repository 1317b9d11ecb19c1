// SPDX-License-Identifier: MIT
#include "soak/lines.h"

#include "support/gateway_client.h"
#include "support/loopback_port.h"

#include <array>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

/// Calls `take` for each complete line and leaves the rest in `bytes`.
template <typename Take>
void takeLines(QByteArray &bytes, Take take)
{
    int begin = 0;
    for (int end = bytes.indexOf('\n'); end >= 0; end = bytes.indexOf('\n', begin)) {
        take(bytes.mid(begin, end - begin));
        begin = end + 1;
    }
    bytes.remove(0, begin);
}

/// The frame number that stands at the end of a line, behind the right sequence number.
bool takeNumber(const QByteArray &line, quint32 &number)
{
    bool whole = false;
    number = line.mid(line.lastIndexOf(' ') + 1).toUInt(&whole);
    return whole && line.startsWith('[' + QByteArray::number(number & 0x7FFFU) + "] ");
}

void count(FrameCount &receiver, const QByteArray &line)
{
    quint32 number = 0;
    if (takeNumber(line, number))
        receiver.take(number);
    else
        receiver.takeForeign();
}

/// Takes commands on a thread of its own and answers each with the number in it.
class CountingGateway
{
public:
    explicit CountingGateway(FrameCount &commands) : mCommands(commands) { mPort.listen(); }
    ~CountingGateway()
    {
        if (mThread.joinable())
            mThread.join();
    }
    CountingGateway(const CountingGateway &) = delete;
    CountingGateway &operator=(const CountingGateway &) = delete;

    quint16 port() const { return mPort.number(); }
    /// Takes the connection that waits, until its peer ends it.
    void start()
    {
        mThread = std::thread([this, connection = mPort.accept()] { serve(connection); });
    }

private:
    void serve(int connection)
    {
        QByteArray bytes;
        std::array<char, 65536> chunk; // NOLINT(cppcoreguidelines-pro-type-member-init)
        for (;;) {
            const ssize_t got = ::read(connection, chunk.data(), chunk.size());
            if (got <= 0)
                return;
            bytes.append(chunk.data(), static_cast<int>(got));
            QByteArray answers;
            takeLines(bytes, [&](const QByteArray &line) {
                count(mCommands, line);
                answers += line.left(line.indexOf(' ') + 1) + line.mid(line.lastIndexOf(' ') + 1) + "\r\n";
            });
            for (qsizetype sent = 0; sent < answers.size();) {
                const ssize_t part = ::send(connection, answers.constData() + sent,
                                            static_cast<std::size_t>(answers.size() - sent), MSG_NOSIGNAL);
                if (part < 0)
                    return;
                sent += part;
            }
        }
    }

    FrameCount &mCommands;
    LoopbackPort mPort;
    std::thread mThread;
};

/// A gateway carries commands and answers in place of frames. Each command asks for its own number.
class GatewayLine : public SoakLine
{
public:
    explicit GatewayLine(quint32 frames)
        : mGateway(addReceiver(QStringLiteral("gateway, commands"), frames))
        , mAnswers(addReceiver(QStringLiteral("gateway, answers"), frames))
    {
        setGateway(mAdapter, mGateway.port());
        QObject::connect(&mAdapter, &AbstractCanAdapter::newCiA309Response, [this](const QString &text) {
            mBytes += text.toUtf8();
            takeLines(mBytes, [this](const QByteArray &line) { count(mAnswers, line.trimmed()); });
        });
    }
    ~GatewayLine() override { mAdapter.prepareToTerminate(); }

    bool open() override
    {
        if (mAdapter.open() != CAN::RetOk)
            return false;
        mGateway.start();
        return true;
    }
    bool send(quint32 number) override
    {
        return mAdapter.write(QStringLiteral("1 read 0x2000 0 u64 ") + QString::number(number)) == CAN::RetOk;
    }
    bool needsEventLoop() const override { return true; }

private:
    CountingGateway mGateway;
    FrameCount &mAnswers;
    QByteArray mBytes;
    CiA309Adapter mAdapter{QString()};
};

} // namespace

std::unique_ptr<SoakLine> makeGatewayLine(quint32 frames)
{
    return std::make_unique<GatewayLine>(frames);
}
