#pragma once
// Text between the engine and the widgets: the engine's texts are bytes in the locale's
// encoding (file names among them), the widgets' are QStrings.

#include <QString>
#include <string>
#include <string_view>

namespace qb::ui {

inline QString Q(std::string_view s) {
  return QString::fromLocal8Bit(s.data(), static_cast<qsizetype>(s.size()));
}
inline std::string S(const QString& s) {
  return s.toLocal8Bit().toStdString();
}

}  // namespace qb::ui
