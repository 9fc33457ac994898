#include "verify/files.h"

#include "shared/owner.h"
#include "verify/places.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace verify {

namespace {

constexpr DWORD PieceBytes = 65'536;

// A file read from beginning to end, piece by piece.
class Content {
public:
    explicit Content(const std::wstring& path)
        : file_(::CreateFileW(path.c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              /*lpSecurityAttributes=*/nullptr, OPEN_EXISTING,
                              FILE_FLAG_SEQUENTIAL_SCAN, /*hTemplateFile=*/nullptr)),
          error_(file_ ? ERROR_SUCCESS : ::GetLastError()) {}

    // The next piece; shorter than the previous one or empty at the end, or after an error.
    std::span<const std::byte> Next() {
        DWORD bytes = 0;
        if (error_ == ERROR_SUCCESS && !::ReadFile(file_.Get(), buffer_.data(), PieceBytes, &bytes,
                                                   /*lpOverlapped=*/nullptr)) {
            error_ = ::GetLastError();
        }
        return {buffer_.data(), error_ == ERROR_SUCCESS ? bytes : 0};
    }

    [[nodiscard]] DWORD Error() const { return error_; }

private:
    Utils::FileHandle file_;
    DWORD error_;
    std::vector<std::byte> buffer_ = std::vector<std::byte>(PieceBytes);
};

Finding Compare(const std::wstring& shipped, const std::wstring& path) {
    Content expected(shipped);
    Content found(path);
    std::uint64_t same = 0;
    for (;;) {
        const std::span<const std::byte> expectedPiece = expected.Next();
        const std::span<const std::byte> foundPiece = found.Next();
        if (expected.Error() != ERROR_SUCCESS) {
            return CannotTell(L"the shipped file: " + ErrorText(expected.Error()));
        }
        if (found.Error() != ERROR_SUCCESS) {
            return CannotTell(found.Error());
        }
        const auto difference = std::ranges::mismatch(expectedPiece, foundPiece);
        same += static_cast<std::uint64_t>(difference.in1 - expectedPiece.begin());
        if (difference.in1 != expectedPiece.end() || difference.in2 != foundPiece.end()) {
            return Found(/*asExpected=*/false,
                         L"another content, from byte " + std::to_wstring(same) + L" on");
        }
        if (foundPiece.empty()) {
            return Found(/*asExpected=*/true, L"the same");
        }
    }
}

Finding OfFile(const FileOperation& operation, const Place& place, const Place& shipped) {
    if (!place.Exists()) {
        return NotThere(place);
    }
    if (place.IsDirectory()) {
        return Found(/*asExpected=*/false, L"a directory");
    }
    if (!operation.overwrite) {
        return Found(/*asExpected=*/true, L"there");
    }
    if (!shipped.Exists()) {
        Finding finding = NotThere(shipped);
        finding.text.insert(0, L"the shipped file: ");
        return finding;
    }
    return Compare(shipped.path, place.path);
}

}  // namespace

Rows CheckFiles(std::span<const FileOperation> operations) {
    Rows rows;
    for (const FileOperation& operation : operations) {
        const Place place = PlaceOf(operation.fileName, operation.resolveDestination);
        const Place shipped = PlaceAt(operation.sourcePath);
        rows.push_back({"file", place.path.empty() ? operation.fileName : place.path,
                        operation.overwrite ? L"the same as " + shipped.path : L"there",
                        OfFile(operation, place, shipped)});
    }
    return rows;
}

}  // namespace verify
