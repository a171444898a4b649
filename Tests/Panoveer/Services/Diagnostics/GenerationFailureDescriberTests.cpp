#include "Panoveer/Services/Diagnostics/GenerationFailureDescriber.h"
#include "Platform/Core/Localization.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <vector>

namespace panoveer {
namespace {

using Describer = GenerationFailureDescriber;

// Errors one beneath the other, the first one outermost.
Error chained(std::vector<Error> errors) {
    for (auto i = errors.size(); i-- > 1;)
        errors[i - 1].setUnderlying(std::make_shared<Error>(errors[i]));
    return errors.front();
}

Error media(int code, const char* text = "media") { return Error(text, std::string(mediaErrorDomain), code); }
Error cocoa(int code) { return Error("cocoa", "NSCocoaErrorDomain", code); }
Error plain(const char* text) { return Error(text); }

struct FailureRow {
    const char* name;
    Error failure;
    std::string message; // a key below "error.generation.", or the text itself
};

class Failure : public testing::TestWithParam<FailureRow> {};

TEST_P(Failure, IsToldInOneSentence) {
    const auto& expected = GetParam().message;
    const auto key = "error.generation." + expected;
    EXPECT_EQ(Describer::message(GetParam().failure), localized(key) == key ? expected : localized(key));
}

INSTANTIATE_TEST_SUITE_P(
    Table, Failure,
    testing::Values(
        FailureRow{"FullDisk", posixError("x", ENOSPC), "disk_full"},
        FailureRow{"UsedUpQuota", posixError("x", EDQUOT), "disk_full"},
        FailureRow{"FullDiskOfCocoa", cocoa(640), "disk_full"},
        FailureRow{"FullDiskUnderWrappers", chained({posixError("x", EACCES), plain("a"), media(-11807)}), "disk_full"},
        FailureRow{"NotPermitted", posixError("x", EPERM), "permission_denied"},
        FailureRow{"NoAccess", posixError("x", EACCES), "permission_denied"},
        FailureRow{"NoFolder", posixError("x", ENOENT), "destination_missing"},
        FailureRow{"NoMemory", posixError("x", ENOMEM), "out_of_memory"},
        FailureRow{"ReadOnly", posixError("x", EROFS), "read_only_destination"},
        FailureRow{"CocoaNoAccess", cocoa(513), "permission_denied"},
        FailureRow{"CocoaNoFile", cocoa(4), "destination_missing"},
        FailureRow{"CocoaReadOnly", cocoa(642), "read_only_destination"},
        FailureRow{"MediaNoAccess", media(-11862), "permission_denied"},
        FailureRow{"NoEncoder", media(-11834), "encoder_unavailable"},
        FailureRow{"Unreadable", media(-11829), "source_unreadable"},
        FailureRow{"MediaNoMemory", media(-11801), "out_of_memory"},
        FailureRow{"TheOutermostKnownOneCounts", chained({plain("a"), media(-11829), posixError("x", ENOENT)}),
                   "source_unreadable"},
        FailureRow{"AloneAsItStands", plain("It broke."), "It broke."},
        FailureRow{"OfTheMediaLayerWithItsCode", media(-11800, "It broke."),
                   "It broke. (AVFoundationErrorDomain, code -11800)"},
        FailureRow{"GenericWithItsCode", Error("The Operation could not be completed.", "X", 3),
                   "The Operation could not be completed. (X, code 3)"},
        FailureRow{"GenericInItalian", Error("Operazione non può essere completata.", "X", 3),
                   "Operazione non può essere completata. (X, code 3)"},
        FailureRow{"WithItsReason", chained({plain("It broke."), plain("between"), plain("The wire is cut.")}),
                   "It broke. Reason: The wire is cut."},
        FailureRow{"WithTheSameReason", chained({plain("It broke."), plain("It broke.")}), "It broke."},
        FailureRow{"WithTheReasonInIt", chained({plain("It broke: cut."), plain("cut.")}), "It broke: cut."}),
    [](const auto& test) { return test.param.name; });

TEST(GenerationFailureDescriberTests, TellsWhatIsNoErrorToo) {
    EXPECT_EQ(Describer::message(std::bad_alloc()), localized("error.generation.out_of_memory"));
    EXPECT_EQ(Describer::message(std::runtime_error("odd")), "odd");
    EXPECT_EQ(Describer::diagnosticMessage(std::runtime_error("odd")), "odd");
    EXPECT_FALSE(Describer::containsOutOfSpaceError(std::runtime_error("odd")));
}

TEST(GenerationFailureDescriberTests, WritesTheWholeChainForDiagnostics) {
    auto inner = posixError("disk", ENOSPC);
    inner.setFailureReason("quota");
    EXPECT_EQ(Describer::diagnosticMessage(chained({media(-11800, "outer"), inner})),
              "AVFoundationErrorDomain(-11800): outer <- NSPOSIXErrorDomain(28): disk: No space left on device "
              "reason=quota");
}

TEST(GenerationFailureDescriberTests, EndsWithAChainThatBitesItsTail) {
    const auto first = std::make_shared<Error>("first"), second = std::make_shared<Error>("second");
    first->setUnderlying(second);
    second->setUnderlying(first);
    EXPECT_EQ(Describer::errorChain(*first).size(), 2u);
    second->setUnderlying(nullptr);
}

} // namespace
} // namespace panoveer
