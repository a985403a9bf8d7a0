#include <ranges>

#include "device/health.h"
#include "device/hxr_device.h"
#include "stream/stream_engine.h"
#include "stream/stream_plan.h"

namespace hxr {
namespace {

/// The units send by themselves once they are started. The master comes last.
void startVrtStream(HXRDevice& master, const std::vector<StreamLists>& lists) {
    const std::vector<HXRDevice*> units = groupUnits(master);
    for (const auto list : {&StreamLists::config, &StreamLists::start}) {
        for (std::size_t u = units.size(); u-- > 0;) {
            units[u]->link->sendList(lists[u].*list);
            requestStatus(*units[u]);
        }
    }
}

}  // namespace

HXRStatus configureStream(HXRDevice& master) {
    std::vector<StreamLists> lists = planStream(master);
    if (master.localStream) {
        master.streamEngine = std::make_unique<StreamEngine>(master, std::move(lists));
    } else {
        startVrtStream(master, lists);
    }
    return hxrNoError;
}

}  // namespace hxr
