#pragma once
namespace hxr {
class FftPlanCf32 {};
}  // namespace hxr
