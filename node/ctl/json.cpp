#include "node/ctl/json.h"

#include <cstdio>

namespace node::ctl {

namespace {

constexpr size_t indent = 2;

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (static_cast<unsigned char>(c) < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c));
            out += escape;
        } else {
            out += c;
        }
    }
    return out + "\"";
}

void newLine(std::string& out, int depth) {
    if (depth >= 0) {
        out += '\n';
        out.append(indent * static_cast<size_t>(depth), ' ');
    }
}

}  // namespace

Json Json::of(const std::string& value) {
    return Json(Kind::literal, quoted(value));
}

Json& Json::add(const std::string& name, Json value) {
    members_.emplace_back(name, std::move(value));
    return *this;
}

Json& Json::add(Json value) {
    members_.emplace_back("", std::move(value));
    return *this;
}

void Json::write(std::string& out, int depth) const {
    if (kind_ == Kind::literal) {
        out += literal_;
        return;
    }
    const int inner = depth < 0 ? depth : depth + 1;
    out += kind_ == Kind::object ? '{' : '[';
    const char* between = "";
    for (const auto& [name, value] : members_) {
        out += between;
        between = depth < 0 ? ", " : ",";
        newLine(out, inner);
        if (kind_ == Kind::object) {
            out += quoted(name) + ": ";
        }
        value.write(out, inner);
    }
    if (!members_.empty()) {
        newLine(out, depth);
    }
    out += kind_ == Kind::object ? '}' : ']';
}

std::string Json::line() const {
    std::string out;
    write(out, -1);
    return out;
}

std::string Json::text() const {
    std::string out;
    write(out, 0);
    return out + "\n";
}

}  // namespace node::ctl
