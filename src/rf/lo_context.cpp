#include "rf/lo_context.h"

#include "rf/shared_vco_defaults.h"

namespace hxr {
namespace {

constexpr std::size_t sharedTable = words::channelsPerUnit;

template <std::size_t planes, std::size_t tables, std::size_t points>
std::vector<LoTableRow> tableOf(const std::uint8_t (&data)[planes][tables][points], std::size_t table,
                                double firstMHz, double spacingMHz) {
    static_assert(planes == 3);
    std::vector<LoTableRow> rows(points);
    for (std::size_t i = 0; i < points; ++i) {
        rows[i] = {firstMHz + static_cast<double>(i) * spacingMHz, data[0][table][i], data[1][table][i],
                   data[2][table][i]};
    }
    return rows;
}

}  // namespace

LoContext::LoContext() {
    constexpr double firstGHz = 8.0;
    constexpr double spacingGHz = 0.015625;
    sharedVcoTable.reserve(sharedVcoDefaults.size());
    for (std::uint32_t i = 0; i < sharedVcoDefaults.size(); ++i) {
        const auto& [core, band, bias] = sharedVcoDefaults[i];
        sharedVcoTable.push_back({i, firstGHz + i * spacingGHz, core, band, bias});
    }
    for (auto& table : lowLoTables) table.resize(lowLoRows);
    for (auto& table : highLoTables) table.resize(highLoRows);
}

void loadLoTables(LoContext& context, const HXRCBBData& data) {
    for (std::size_t t = 0; t < context.lowLoTables.size(); ++t)
        context.lowLoTables[t] = tableOf(data.cbbLowTable, t, 2000.0, 3.90625);
    for (std::size_t t = 0; t < context.highLoTables.size(); ++t)
        context.highLoTables[t] = tableOf(data.cbbHighTable, t, 5500.0, 7.8125);

    for (SharedVcoRow& row : context.sharedVcoTable) {
        const LoTableRow& point = context.lowLoTables[sharedTable][row.index];
        row.core = point.a;
        row.band = point.b;
        row.bias = static_cast<std::int32_t>(point.c);
    }
    context.cbbLoaded = true;
}

}  // namespace hxr
