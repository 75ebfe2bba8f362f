#ifndef Status_h
#define Status_h

#include "ExitCodes.h"

#include <cstring>
#include <string>
#include <utility>

/// What became of an operation: success, or the exit code that the tool ends with because of it,
/// and a text for the operator. Success allocates no memory.
///
/// An operation that gives a value returns a Status and has an out parameter for the value. The
/// value means something after success only.
///
///     Status Load(const std::string& iPath, Scene& oScene) {
///         std::string bytes;
///         Status status = ReadBytes(iPath, bytes);
///         if (status.Failed()) return status.In(iPath);  // "engine.stl: No such file"
///         return Parse(bytes, oScene).In(iPath);
///     }
class [[nodiscard]] Status {
public:
    /// Success.
    Status() = default;

    /// A failure.
    /// @param iCode  another one than ExitCode::Done
    /// @param iText  why, in words that follow on the name of what failed
    Status(ExitCode iCode, std::string iText) : _code(iCode), _text(std::move(iText)) {}

    /// The system, the files or the memory don't allow it.
    static Status Environment(std::string iText) {
        return {ExitCode::Environment, std::move(iText)};
    }

    /// The same, in the system's words.
    /// @param iError  as in errno
    static Status System(int iError) { return Environment(std::strerror(iError)); }

    /// A file or a part of the input can't be used; the work goes on with the others.
    static Status PartFailed(std::string iText) {
        return {ExitCode::PartsFailed, std::move(iText)};
    }

    /// Stored bytes are wrong.
    static Status Damaged(std::string iText) { return {ExitCode::Damaged, std::move(iText)}; }

    bool Failed() const { return _code != ExitCode::Done; }
    ExitCode Code() const { return _code; }

    /// Why it failed; empty after success.
    const std::string& Text() const { return _text; }

    /// The same with the name of what failed before the text: "NAME: TEXT". Success stays success.
    Status In(const std::string& iName) const {
        return Failed() ? Status(_code, iName + ": " + _text) : Status();
    }

private:
    ExitCode _code = ExitCode::Done;
    std::string _text;
};

#endif
