// SPDX-License-Identifier: MIT
#include "buscycle/send_gate.h"

namespace buslink {

CAN::RetType SendGate::write(CAN::CanMessage *message)
{
    for (; !mShut.load(); QThread::msleep(1)) {
        if (!mEchoes->hasRoom())
            continue;
        const CAN::RetType result = mTarget->write(message);
        if (result == CAN::RetTxBufferFull)
            continue;
        if (result != CAN::RetOk)
            return CAN::RetError;
        mEchoes->frameAccepted();
        return CAN::RetOk;
    }
    return CAN::RetTxBufferFull;
}

} // namespace buslink
