// A JSON value that is only written, its members in the order in which they were added.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace node::ctl {

class Json {
public:
    static Json object() { return Json(Kind::object); }
    static Json array() { return Json(Kind::array); }
    static Json null() { return Json(Kind::literal, "null"); }
    static Json of(bool value) { return Json(Kind::literal, value ? "true" : "false"); }
    static Json of(uint64_t value) { return Json(Kind::literal, std::to_string(value)); }
    static Json of(uint32_t value) { return Json(Kind::literal, std::to_string(value)); }
    static Json of(int64_t value) { return Json(Kind::literal, std::to_string(value)); }
    static Json of(const std::string& value);
    static Json of(const char* value) { return of(std::string(value)); }

    Json& add(const std::string& name, Json value);  // to an object
    template <class Value>
    Json& add(const std::string& name, const Value& value) {
        return add(name, of(value));
    }
    Json& add(Json value);  // to an array

    std::string line() const;  // without a newline
    std::string text() const;  // indented, with a newline at the end

private:
    enum class Kind { literal, object, array };
    explicit Json(Kind kind, std::string literal = "")
        : kind_(kind), literal_(std::move(literal)) {}

    // A negative depth writes everything into one line.
    void write(std::string& out, int depth) const;

    Kind kind_;
    std::string literal_;
    std::vector<std::pair<std::string, Json>> members_;  // of an array without names
};

}  // namespace node::ctl
