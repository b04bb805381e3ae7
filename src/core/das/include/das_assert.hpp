// Assertions of the data model whose report text is fixed, such as
// "Unsupported variant types in arithmetic operation": they report through the library's
// assertion service and return, so the code behind them always has its fallback.
#pragma once

#include <quillon2/headers/kesmet.hpp>

#define Q2_DAS_ASSERT_TEXT(text)                                                  \
  ::KESMET_2_18::debug::_private::____________________ASSERT____________________( \
      text, __FILE__, __LINE__, __func__)
