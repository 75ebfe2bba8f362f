#include "FieldPrinter.h"

#include "Console.h"
#include "Utf8.h"

#include <cstdio>

namespace {

std::string Json(const nlohmann::json& iValue) {
    return iValue.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

FieldPrinter::FieldPrinter(
    const std::string& iFile, const char* iKind, std::size_t iSize, bool iAsJson)
    : _asJson(iAsJson) {
    if (_asJson) {
        std::printf(
            R"({"file": %s, "kind": %s, "size": %zu, "blocks": [)", Json(ValidUtf8(iFile)).c_str(),
            Json(iKind).c_str(), iSize);
    } else {
        std::printf("%s: %s, %zu bytes\n", Printable(iFile).c_str(), iKind, iSize);
    }
}

FieldPrinter::~FieldPrinter() {
    if (_asJson) std::printf("%s]}\n", _nBlocks == 0 ? "" : "\n]}");
}

void FieldPrinter::Block(std::size_t iOffset, const std::string& iName) {
    if (_asJson) {
        std::printf(
            "%s\n{\"at\": %zu, \"block\": %s, \"fields\": [", _nBlocks == 0 ? "" : "]},", iOffset,
            Json(iName).c_str());
    } else {
        std::printf("%10zu  %s\n", iOffset, iName.c_str());
    }
    ++_nBlocks;
    _nFields = 0;
}

void FieldPrinter::Field(std::size_t iOffset, const char* iName, const nlohmann::json& iValue) {
    if (_asJson) {
        std::printf(
            R"(%s{"at": %zu, "name": "%s", "value": %s})", _nFields == 0 ? "" : ", ", iOffset,
            iName, Json(iValue).c_str());
    } else {
        const std::string value =
            iValue.is_string() ? Printable(iValue.get<std::string>()) : Json(iValue);
        std::printf("%10zu    %-12s %s\n", iOffset, iName, value.c_str());
    }
    ++_nFields;
}
