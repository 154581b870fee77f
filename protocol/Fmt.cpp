// The code of fmt, from its headers: Debian has fmt as a shared library only, which a unit does not have.

#include <fmt/format-inl.h>

template auto fmt::detail::thousands_sep_impl<char>(locale_ref) -> thousands_sep_result<char>;
template auto fmt::detail::decimal_point_impl<char>(locale_ref) -> char;
template fmt::detail::locale_ref::locale_ref(const std::locale& locale);
template auto fmt::detail::locale_ref::get<std::locale>() const -> std::locale;
