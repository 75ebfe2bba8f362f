#ifndef FieldPrinter_h
#define FieldPrinter_h

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>

/// Prints the blocks of a file and their fields with their offsets, as lines for people or as one
/// JSON object: {"file", "kind", "size", "blocks": [{"at", "block", "fields": [{"at", "name",
/// "value"}]}]}. Prints as it goes: a file of any length takes no memory.
class FieldPrinter {
public:
    FieldPrinter(const std::string& iFile, const char* iKind, std::size_t iSize, bool iAsJson);
    FieldPrinter(const FieldPrinter&) = delete;
    FieldPrinter& operator=(const FieldPrinter&) = delete;
    ~FieldPrinter();  ///< ends the JSON object

    /// Starts a block; the fields that follow belong to it.
    void Block(std::size_t iOffset, const std::string& iName);

    /// @param iValue  a number, a text or a list of numbers
    void Field(std::size_t iOffset, const char* iName, const nlohmann::json& iValue);

private:
    bool _asJson;
    std::size_t _nBlocks = 0;
    std::size_t _nFields = 0;  ///< of the block
};

#endif
