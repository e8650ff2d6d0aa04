// The page, whole: it asks for nothing from elsewhere.
#pragma once

namespace ostrel::station {

extern const char* const kPage;

}  // namespace ostrel::station
