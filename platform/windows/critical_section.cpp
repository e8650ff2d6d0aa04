// The system's section is shared with hosts that enter it themselves, so its own order of service holds here.
#include "platform/critical_section.h"

namespace ostrel::platform {

CriticalSection::CriticalSection() { ::InitializeCriticalSection(&state_); }
CriticalSection::~CriticalSection() { ::DeleteCriticalSection(&state_); }

void CriticalSection::Enter() { ::EnterCriticalSection(&state_); }
void CriticalSection::Leave() { ::LeaveCriticalSection(&state_); }

}  // namespace ostrel::platform
