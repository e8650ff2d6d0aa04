#include "Protocol/acquisition/DeviceCycle.h"

#include "Protocol/acquisition/ClockCorrection.h"
#include "Protocol/acquisition/PolledChannel.h"
#include "Protocol/acquisition/TagWalk.h"
#include "Protocol/link/LineGuard.h"
#include "Protocol/meter/MeterInfo.h"
#include "Protocol/meter/MeterParameters.h"
#include "platform/clock.h"

namespace ostrel {

std::uint32_t RunDeviceCycle(PolledChannel& channel, std::uint32_t device) {
  if (AnyTagInUse(channel, device) == 0) return 1;
  if (channel.CanPollDevice(device) == 0) return 1;
  platform::Sleep(channel.PauseAfterError);
  {
    const LineGuard guard(channel);
    ClearUpdated(channel, device);
  }
  if (LoadFlag(channel.Device(device)->ExchangeOn) != 0 && ReadInfoOnce(channel, device) == 0) return 0;
  if (ServeTags(channel, device) == 0) return 0;
  platform::Sleep(kPauseBeforeClockMs);
  if (!CheckClock(channel, device)) return 0;
  channel.Device(device)->ForceClockCheck = 0;
  return 1;
}

}  // namespace ostrel
