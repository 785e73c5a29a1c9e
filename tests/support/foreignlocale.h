#pragma once

#include <locale>
#include <string>

/// While it lives, the global locale is one that writes 1.2.3.4,5, as an application may have set it.
class ForeignLocale {
 public:
  ForeignLocale() = default;
  ForeignLocale(const ForeignLocale&) = delete;
  ForeignLocale& operator=(const ForeignLocale&) = delete;
  ~ForeignLocale() { std::locale::global(m_previous); }

 private:
  struct Punctuation : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\1"; }
  };

  const std::locale m_previous = std::locale::global(std::locale(std::locale::classic(), new Punctuation));
};
