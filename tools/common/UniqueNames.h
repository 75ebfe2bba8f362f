#ifndef UniqueNames_h
#define UniqueNames_h

#include <map>
#include <set>
#include <string>

/// Makes names unique: one that was given before gets a mark and the next free number at its end.
/// What comes out depends on the names and their order alone.
class UniqueNames {
public:
    /// @param iMark  between a name and its number, such as "~"
    explicit UniqueNames(std::string iMark) : _mark(std::move(iMark)) {}

    std::string Make(const std::string& iName) {
        std::string name = iName;
        if (_given.contains(name)) {
            int& number = _numbers.try_emplace(iName, 1).first->second;
            while (_given.contains(name)) name = iName + _mark + std::to_string(++number);
        }
        _given.insert(name);
        return name;
    }

private:
    std::string _mark;
    std::set<std::string> _given;
    std::map<std::string, int> _numbers;  ///< the latest number of a name that came again
};

#endif
