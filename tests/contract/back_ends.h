// SPDX-License-Identifier: MIT
#pragma once

#include "support/open_adapter.h"

#include <QtCore/QVector>

#include <functional>
#include <memory>

/// A bus of its own for one test, with as many adapters on it as the test wants.
class TestBus
{
public:
    virtual ~TestBus() = default;
    /// A new, closed adapter on this bus, with an identifier.
    virtual AdapterPointer<AbstractCanAdapter> makeAdapter(int uniqueId) = 0;
    /// Opens an adapter and waits until it hears the bus.
    virtual bool open(AbstractCanAdapter *adapter) = 0;
};

/// A back end as the contract suite sees it.
struct BackEnd
{
    const char *name;
    std::function<std::unique_ptr<TestBus>()> makeBus;
    bool echoesFromTheStart;
    bool waitsBeforeTermination;
};

/// All back ends that the suite runs against.
QVector<BackEnd> backEnds();

Q_DECLARE_METATYPE(BackEnd)
