#include "PanoveerTool/ProgressDisplay.h"

#include "Panoveer/Services/Export/VRExportError.h"
#include "PanoveerTool/JSONText.h"
#include "Platform/Core/Localization.h"

#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <format>
#include <iostream>

namespace panoveer::tool {

namespace {

constexpr auto redrawInterval = std::chrono::milliseconds(200);
constexpr int narrowestBar = 10;
constexpr int widestBar = 40;

int terminalColumns() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

std::string clockText(double seconds) {
    const auto whole = std::int64_t(std::max(seconds, 0.0) + 0.5);
    return whole >= 3600 ? std::format("{}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60)
                         : std::format("{}:{:02}", whole / 60, whole % 60);
}

// The first seconds say little about the rest.
std::optional<double> secondsLeft(double fraction, double elapsedSeconds) {
    if (fraction < 0.005 || elapsedSeconds < 1 || fraction >= 1)
        return std::nullopt;
    return elapsedSeconds * (1 - fraction) / fraction;
}

// What comes behind the last picture takes a while, and nobody knows how long.
bool isExporting(const ExportProgress& progress) { return progress.message == localized("export.progress.exporting"); }

} // namespace

ProgressDisplay::ProgressDisplay(ProgressStyle style) : style_(style) {}

ProgressDisplay::~ProgressDisplay() {
    if (barIsOpen_)
        std::cerr << '\n';
}

ProgressStyle ProgressDisplay::automaticStyle() {
    return isatty(STDERR_FILENO) ? ProgressStyle::bar : ProgressStyle::none;
}

ProgressStyle ProgressDisplay::styleNamed(const std::optional<std::string>& name) {
    if (!name)
        return automaticStyle();
    return *name == "json" ? ProgressStyle::json : *name == "bar" ? ProgressStyle::bar : ProgressStyle::none;
}

void ProgressDisplay::show(const ExportProgress& progress, std::int64_t framesWritten) {
    if (framesWritten < framesOfThisMovie_)
        framesOfFinishedMovies_ += framesOfThisMovie_;
    framesOfThisMovie_ = framesWritten;

    const auto now = Clock::now();
    const bool due = !lastShown_ || progress.fraction >= 1 || progress.message != lastMessage_ ||
                     now - *lastShown_ >= redrawInterval;
    if (style_ == ProgressStyle::none || !due)
        return;
    lastShown_ = now;
    lastMessage_ = progress.message;
    const double elapsed = std::chrono::duration<double>(now - begin_).count();
    if (style_ == ProgressStyle::bar)
        drawBar(progress, elapsed);
    else
        printJSON(progress, elapsed);
}

void ProgressDisplay::drawBar(const ExportProgress& progress, double elapsedSeconds) {
    const auto frames = framesOfFinishedMovies_ + framesOfThisMovie_;
    const auto left = secondsLeft(progress.fraction, elapsedSeconds);
    const auto figures = std::format(" {:3} %  {} frames  {:.1f} fps  {}", progress.displayedPercent(), frames,
                                     elapsedSeconds > 0 ? double(frames) / elapsedSeconds : 0.0,
                                     !isExporting(progress) ? progress.message
                                     : left                 ? clockText(*left) + " left"
                                                            : clockText(elapsedSeconds));
    const int width = std::clamp(terminalColumns() - int(figures.size()) - 3, narrowestBar, widestBar);
    const int filled = int(std::clamp(progress.fraction, 0.0, 1.0) * width);
    std::cerr << "\r\x1b[K[" << std::string(std::size_t(filled), '#') << std::string(std::size_t(width - filled), '.')
              << ']' << figures << std::flush;
    barIsOpen_ = true;
}

void ProgressDisplay::printJSON(const ExportProgress& progress, double elapsedSeconds) const {
    nlohmann::ordered_json line = {{"fraction", progress.fraction},
                                   {"percent", progress.displayedPercent()},
                                   {"message", progress.message},
                                   {"frames", framesOfFinishedMovies_ + framesOfThisMovie_},
                                   {"elapsedSeconds", elapsedSeconds}};
    if (const auto left = secondsLeft(progress.fraction, elapsedSeconds); left && isExporting(progress))
        line["secondsLeft"] = *left;
    std::cerr << jsonText(line) << std::endl;
}

void ProgressDisplay::showEnd(const std::exception& failure) {
    if (style_ != ProgressStyle::json)
        return;
    const auto* end = dynamic_cast<const VRExportError*>(&failure);
    const bool isCancelled =
        dynamic_cast<const Cancelled*>(&failure) || (end && end->which() == VRExportError::Case::cancelledPartialSaved);
    nlohmann::ordered_json line = {{"event", isCancelled ? "cancelled" : "failed"}};
    if (!isCancelled)
        line["message"] = failure.what();
    if (end && !end->url().empty())
        line["partial"] = end->url().path().string();
    std::cerr << jsonText(line) << std::endl;
}

} // namespace panoveer::tool
