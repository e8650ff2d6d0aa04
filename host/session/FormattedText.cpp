// The formatting library's own functions, compiled here once for all files of a program: as headers alone they cost every file
// more time than all else in it, and as the system's shared library they would be one more thing to install.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {
template dragonbox::decimal_fp<float> dragonbox::to_decimal(float) noexcept;
template dragonbox::decimal_fp<double> dragonbox::to_decimal(double) noexcept;
template void buffer<char>::append(const char*, const char*);
template void vformat_to(buffer<char>&, string_view, basic_format_args<FMT_BUFFER_CONTEXT(char)>, locale_ref);
template thousands_sep_result<char> thousands_sep_impl(locale_ref);
template char decimal_point_impl(locale_ref);
}  // namespace detail
FMT_END_NAMESPACE
