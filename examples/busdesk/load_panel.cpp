// SPDX-License-Identifier: MIT
#include "busdesk/load_panel.h"

#include "busdesk/adapter_desk.h"
#include "busdesk/desk_texts.h"
#include "busdesk/named_widgets.h"
#include "busdesk/seconds_plot.h"

#include <QtWidgets/QHBoxLayout>
#include <QtWidgets/QLabel>
#include <QtWidgets/QSpinBox>
#include <QtWidgets/QVBoxLayout>

#include <map>
#include <utility>

namespace buslink {

LoadPanel::LoadPanel(AdapterDesk *desk)
    : mDesk(desk)
    , mFrames(named<SecondsPlot>("framesPlot", tr("Frames that each adapter received and sent, second by second"),
                                 tr("Frames per second"), LoadHistory::Seconds))
    , mLoad(named<SecondsPlot>("loadPlot",
                               tr("How busy the frames kept each bus, in percent of the time, with the stuff bits that "
                                  "they need; error frames are not known here"),
                               tr("Bus load (%)"), LoadHistory::Seconds))
{
    auto *const layout = new QVBoxLayout(this);
    auto *const rates = new QHBoxLayout;
    auto *const label = new QLabel(tr("Load at (&kbit/s)"));
    layout->addWidget(mFrames, 1);
    layout->addWidget(mLoad, 1);
    layout->addLayout(rates);
    rates->addWidget(label);
    mNominal =
        addRate(rates, "loadNominal", tr("nominal "),
                tr("Nominal rate in kbit/s, for the load of buses whose adapter was not told one"), BusRates().nominal);
    mData = addRate(rates, "loadData", tr("data "), tr("Rate of the data phase of CAN FD in kbit/s"), BusRates().data);
    rates->addStretch();
    label->setBuddy(mNominal);
    mClock.start();
    showLoad();
}

QSpinBox *LoadPanel::addRate(QLayout *row, const char *name, const QString &prefix, const QString &toolTip,
                             quint32 rate)
{
    auto *const box = named<QSpinBox>(name, toolTip);
    box->setRange(1, 20000);
    box->setPrefix(prefix);
    box->setValue(static_cast<int>(rate));
    row->addWidget(box);
    return box;
}

BusRates LoadPanel::ratesOf(quint16 adapterId) const
{
    const AbstractCanAdapter *const adapter = mDesk->adapter(adapterId);
    const int told = adapter ? toldRate(*adapter) : 0;
    return {static_cast<quint32>(told > 0 ? told : mNominal->value()), static_cast<quint32>(mData->value())};
}

void LoadPanel::append(const std::vector<CAN::CanRxMessage> &frames)
{
    struct Seen
    {
        BusRates rates;
        LoadHistory::Second sum;
    };
    std::map<quint16, Seen> adapters;
    for (const CAN::CanRxMessage &frame : frames) {
        const auto [entry, isNew] = adapters.try_emplace(frame.adapterId);
        Seen &seen = entry->second;
        if (isNew)
            seen.rates = ratesOf(frame.adapterId);
        ++seen.sum.frames;
        seen.sum.busyNs += busyNs(frame.message, seen.rates);
    }
    const qint64 now = mClock.elapsed();
    for (const auto &[id, seen] : adapters)
        mHistory.add(id, seen.sum, now);
}

void LoadPanel::showLoad()
{
    const qint64 now = mClock.elapsed();
    if (std::exchange(mShownSecond, now / 1000) == now / 1000)
        return;
    std::vector<SecondsPlot::Line> frames;
    std::vector<SecondsPlot::Line> load;
    for (const quint16 id : mHistory.adapters(now)) {
        const QString name = tr("adapter %1").arg(id);
        frames.push_back({name, {}});
        load.push_back({name, {}});
        for (const LoadHistory::Second &second : mHistory.seconds(id, now)) {
            frames.back().values.push_back(second.frames);
            load.back().values.push_back(second.loadPercent());
        }
    }
    mFrames->setLines(std::move(frames));
    mLoad->setLines(std::move(load));
}

} // namespace buslink
