// Names of files, addresses and lines of logs: what people, cameras and other programs write.

#include "Fuzz/FuzzTarget.h"
#include "Panoveer/Services/Diagnostics/DiagnosticPrivacyRedactor.h"
#include "Panoveer/Services/Export/ExportFileNaming.h"
#include "Panoveer/Services/Export/StagedName.h"
#include "Panoveer/Services/Intake/FileNameImmersiveHints.h"
#include "Panoveer/Services/Intake/ImmersiveFormatDetector.h"
#include "Platform/Core/Base64.h"
#include "Platform/Core/Text.h"
#include "Platform/Core/URL.h"

#include <climits>
#include <string>

namespace panoveer::test {

std::vector<Bytes> fuzzSeeds() {
    std::vector<Bytes> seeds;
    for (const std::string_view text :
         {R"({"partial_path":"/home/alice/a b.mov","message":"Cannot open /media/alice/x.mp4 of alice@example.org"})",
          "2026-11-23 error at file:///home/bob/clip%20of%20me.mov (192.168.1.20)\nC:\\Users\\bob\\x.mov",
          "beach_360_TB", "clip-fisheye190-sbs", "VR180 3DH LR 4096x2048 60fps", "mkx200_RL", "été dôme fulldome",
          "film.insv", "file:///films/%C3%A9t%C3%A9%20100%25/clip%231.mov", "https://example.org:8080/a/../b?c=d#e",
          "日本語のビデオ 12", "a\xff\xfe/b:c*?\"<>|.mov", "IMG_0001.MOV", "....", "QUJDREVGRw=="})
        seeds.emplace_back(text.begin(), text.end());
    return seeds;
}

void fuzzOne(std::span<const std::uint8_t> input) {
    const std::string text(input.begin(), input.end());
    const FileNameImmersiveHints hints(text);
    const auto& view = hints.fisheyeFieldOfView;
    require(!view || (*view >= 90 && *view <= 360), "a fisheye's view is 90 to 360 degrees");
    ImmersiveFormatDetector::detect(int(text.size()) * 16, 512, {}, text, false, {});

    if (const auto url = URL::fromString(text))
        require(URL::fromString(url->absoluteString()) == url, "an address reads back as it was written");
    if (text.find('\0') == text.npos) {
        const auto url = URL::fromFilePath("/" + text);
        require(URL::fromString(url.absoluteString()) == url, "a path reads back from its address");
        ExportFileNaming::suggestedBaseName(url, ProjectionFormat::equirectangular);
        ExportFileNaming::sanitizedMaskBaseName(url);
        url.appendingPathComponent(text).deletingLastPathComponent().standardized();
    }
    const auto base = ExportFileNaming::sanitizedCustomBaseName(text);
    require(base.find('/') == base.npos, "a name holds no slash");
    require(fittingFileName(text, ".panoveer.tmp.mov").size() <= std::max<std::size_t>(NAME_MAX, 17),
            "a name fits the file system");
    for (const auto& report : {DiagnosticPrivacyRedactor::redact("/home/alice/" + text),
                               DiagnosticPrivacyRedactor::redactJSONLines("{\"path\":\"/home/alice/\"}\n" + text)})
        require(report.find("/home/alice") == report.npos || text.find("/home/alice") != text.npos,
                "a report does not say whose home a path lies in");
    if (validUTF8Length(text) == text.size()) {
        lowercased(text);
        uppercased(text);
        trimmed(text);
        withoutTrailingNumbers(text);
        alphanumericRuns(text);
        require(localizedStandardCompare(text, text) == 0, "a text equals itself");
    }
}

} // namespace panoveer::test
