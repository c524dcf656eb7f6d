#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace arven {

// A field value as a store holds it: null, a whole number, a real number or
// text. Readers convert on demand; a null reads as 0 or "" through the
// as_* helpers and is told apart with is_null().
class Value {
 public:
  Value() = default;
  Value(std::nullptr_t) {}
  Value(int v) : v_(static_cast<int64_t>(v)) {}
  Value(int64_t v) : v_(v) {}
  Value(double v) : v_(v) {}
  Value(const char* v) : v_(std::string(v)) {}
  Value(std::string v) : v_(std::move(v)) {}
  Value(std::string_view v) : v_(std::string(v)) {}

  bool is_null() const { return std::holds_alternative<std::monostate>(v_); }
  bool is_int() const { return std::holds_alternative<int64_t>(v_); }
  bool is_real() const { return std::holds_alternative<double>(v_); }
  bool is_text() const { return std::holds_alternative<std::string>(v_); }

  // Null and empty text both count as "nothing": the store's fields compare
  // unequal to the empty string only when they hold something.
  bool is_empty() const { return is_null() || (is_text() && std::get<std::string>(v_).empty()); }

  // Numeric view: null is 0, text is parsed (either '.' or the locale's
  // separator); text that is not a number throws NumberError.
  double as_double() const;
  // Integer view: reals round half to even, as an integer conversion would.
  int64_t as_int() const;
  // Text view: null is "", numbers in their cell text form.
  std::string as_text() const;

  const auto& raw() const { return v_; }
  bool operator==(const Value& o) const { return v_ == o.v_; }

 private:
  std::variant<std::monostate, int64_t, double, std::string> v_;
};

}  // namespace arven
