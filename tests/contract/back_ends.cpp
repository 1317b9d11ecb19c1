// SPDX-License-Identifier: MIT
#include "back_ends.h"

namespace {

class VirtualTestBus : public TestBus
{
public:
    AdapterPointer<AbstractCanAdapter> makeAdapter(int uniqueId) override
    {
        return AdapterPointer<AbstractCanAdapter>(makeVirtualAdapter(mPort, uniqueId).release());
    }
    bool open(AbstractCanAdapter *adapter) override { return openOnBus(static_cast<DemoCanAdapter *>(adapter)); }

private:
    quint16 mPort = freeUdpPort();
};

} // namespace

QVector<BackEnd> backEnds()
{
    return {{"virtual", [] { return std::make_unique<VirtualTestBus>(); }, false, true}};
}
