#pragma once

#include <Tarnwick/Tarnwick.hpp>
#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Demo/DemoCanvas.hpp"
#include "Demo/DemoLandscape.hpp"

namespace demo {

/// Draws a desktop with fine text, thin lines, soft shadows and a photograph.
class Desktop {
 public:
  static constexpr tarnwick::CGRect screen{{0, 0}, {1920, 1080}};
  static constexpr tarnwick::CGRect editor{{90, 110}, {900, 640}}, photo{{1050, 84}, {780, 500}};
  static constexpr tarnwick::CGRect terminal{{560, 620}, {660, 360}};
  static constexpr tarnwick::CGRect chart{{1270, 640}, {560, 340}};

  [[nodiscard]] static std::shared_ptr<tarnwick::NSImage> draw() {
    Desktop desktop;
    desktop.drawWallpaper();
    desktop.drawEditor();
    desktop.drawPhoto();
    desktop.drawChart();
    desktop.drawTerminal();
    desktop.drawBar();
    return desktop.canvas_.takeImage();
  }

 private:
  using CGFloat = tarnwick::CGFloat;
  struct Span {
    Colour colour;
    std::string_view text;
  };
  using Line = std::vector<Span>;

  static constexpr CGFloat titleHeight = 40;
  static constexpr std::int64_t lineHeight = 28;
  static constexpr Colour white = rgb(0xf4f5fa), grey = rgb(0x8a90a8), ink = rgb(0x1b1e2e);
  static constexpr Colour blue = rgb(0x6cb2ff), green = rgb(0x8fd694), orange = rgb(0xffb86b),
                          pink = rgb(0xff7eb6);

  void drawWallpaper() {
    canvas_.shade(screen, [](double u, double v) { return dusk.colourAt(u, v, 2); });
  }

  void drawLine(std::int64_t x, std::int64_t y, const Line& line) {
    for (const auto& [colour, text] : line) x = canvas_.text(x, y, 2, colour, text);
  }

  void drawLines(std::int64_t x, std::int64_t y, const std::vector<Line>& lines) {
    for (const Line& line : lines) {
      drawLine(x, y, line);
      y += lineHeight;
    }
  }

  void drawWindow(const tarnwick::CGRect& frame, std::string_view title, const Colour& background) {
    const auto& [origin, size] = frame;
    canvas_.box({{origin.x, origin.y + 14}, size}, 20, rgb(0x000010), 0.55, 60);
    canvas_.box(frame, 12, background, 0.96);
    canvas_.box({origin, {size.width, titleHeight}}, 12, rgb(0x343a55), 0.85);
    const CGFloat right = origin.x + size.width - 20, middle = origin.y + titleHeight / 2;
    canvas_.line({right - 12, middle - 6}, {right, middle + 6}, 2, grey);
    canvas_.line({right - 12, middle + 6}, {right, middle - 6}, 2, grey);
    canvas_.line({right - 42, middle + 6}, {right - 30, middle + 6}, 2, grey);
    const auto centre = static_cast<std::int64_t>(origin.x + size.width / 2);
    const auto half = static_cast<std::int64_t>(title.size()) * font::advance;
    drawLine(centre - half, static_cast<std::int64_t>(origin.y) + 13, {{white, title}});
  }

  void drawEditor() {
    drawWindow(editor, "Receiver.cpp", ink);
    // clang-format off
    const std::vector<Line> code = {
        {{pink, "#include "}, {green, "<Tarnwick/Tarnwick.hpp>"}},
        {{pink, "#include "}, {green, "<iostream>"}},
        {},
        {{pink, "class "}, {orange, "Watcher "}, {white, ": "}, {pink, "public "}, {orange, "tarnwick::RxImageUDPDelegate "}, {white, "{"}},
        {{grey, "  // Called on a thread of the receiver's own."}},
        {{pink, "  void "}, {blue, "imageReceived"}, {white, "("}, {orange, "std::shared_ptr<tarnwick::NSImage> "}, {white, "image,"}},
        {{orange, "      std::optional<tarnwick::CGRect> "}, {white, "bounds) "}, {pink, "override "}, {white, "{"}},
        {{white, "    std::cout << (bounds ? "}, {green, "\"region \""}, {white, " : "}, {green, "\"screen \""}, {white, ")"}},
        {{white, "              << image->size().width << "}, {green, "\" x \""}},
        {{white, "              << image->size().height << std::endl;"}},
        {{white, "  }"}},
        {{white, "};"}},
        {},
        {{pink, "int "}, {blue, "main"}, {white, "() {"}},
        {{pink, "  auto "}, {white, "receiver = tarnwick::RxImageUDP::"}, {blue, "create"}, {white, "("}},
        {{green, "      \"screen\""}, {white, ", "}, {orange, "5000"}, {white, ", "}, {orange, "65500"}, {white, ", std::make_shared<Watcher>());"}},
        {{white, "  receiver->"}, {blue, "beginOperation"}, {white, "();"}},
        {{white, "  tarnwick::DispatchQueue::main()."}, {blue, "run"}, {white, "();"}},
        {{white, "}"}},
    };
    // clang-format on
    const CGFloat top = editor.origin.y + titleHeight + 18;
    const auto x = static_cast<std::int64_t>(editor.origin.x), y = static_cast<std::int64_t>(top);
    const tarnwick::CGRect currentLine{{editor.origin.x + 52, top + 4 * lineHeight - 6},
                                       {editor.size.width - 64, lineHeight}};
    canvas_.box(currentLine, 4, blue, 0.12);
    drawLines(x + 64, y, code);
    for (std::size_t i = 0; i < code.size(); ++i) {
      const std::string number = std::to_string(i + 1);
      const std::int64_t indent = number.size() == 1 ? 28 : 16;
      drawLine(x + indent, y + static_cast<std::int64_t>(i) * lineHeight,
               {{rgb(0x555c78), number}});
    }
  }

  void drawPhoto() {
    drawWindow(photo, "Morning at the lake.jpg", ink);
    const auto& [origin, size] = photo;
    canvas_.shade({{origin.x + 12, origin.y + 52}, {size.width - 24, size.height - 64}},
                  [](double u, double v) { return morning.colourAt(u, v, 14); });
  }

  void drawTerminal() {
    drawWindow(terminal, "Terminal", rgb(0x0b0e17));
    const Span user{green, "user@tarn"}, colon{white, ":"}, home{blue, "~"};
    drawLines(static_cast<std::int64_t>(terminal.origin.x) + 20,
              static_cast<std::int64_t>(terminal.origin.y + titleHeight) + 16,
              {{user, colon, home, {white, "$ ./receiver"}},
               {{grey, "Receive process running for screen"}},
               {{grey, "New full frame with size 302118"}},
               {{white, "screen "}, {orange, "1920 x 1080"}},
               {{grey, "New frame with size 58342"}},
               {{grey, "  bounds (1050.0, 84.0, 780.0, 500.0)"}},
               {{white, "region "}, {orange, "780 x 500"}},
               {{grey, "New frame with size 1187"}},
               {{white, "region "}, {orange, "16 x 16"}},
               {user, colon, home, {white, "$ _"}}});
  }

  void drawChart() {
    drawWindow(chart, "Datagrams a second", rgb(0x23283f));
    const auto& [origin, size] = chart;
    const tarnwick::CGRect plot{{origin.x + 24, origin.y + titleHeight + 26},
                                {size.width - 48, size.height - titleHeight - 54}};
    const CGFloat left = plot.origin.x, right = left + plot.size.width;
    constexpr int rows = 6;
    for (int row = 0; row <= rows; ++row) {
      const CGFloat y = plot.origin.y + plot.size.height * row / rows;
      canvas_.line({left, y}, {right, y}, 1, grey, 0.4);
    }
    drawCurve(plot, 0.4, 0.62, blue);
    drawCurve(plot, 2.1, 0.5, green);
    drawCurve(plot, 4.0, 0.35, orange);
  }

  void drawCurve(const tarnwick::CGRect& plot, double phase, double level, const Colour& colour) {
    constexpr int steps = 48;
    const auto at = [&](int step) -> tarnwick::CGPoint {
      const double t = static_cast<double>(step) / steps;
      const double wave = 0.2 * std::sin(t * 9 + phase) + 0.07 * std::sin(t * 31 + 2 * phase);
      return {plot.origin.x + t * plot.size.width,
              plot.origin.y + (1 - level - wave) * plot.size.height};
    };
    for (int i = 0; i < steps; ++i) canvas_.line(at(i), at(i + 1), 3.5, colour);
    canvas_.disc(at(steps), 7, colour);
  }

  void drawBar() {
    constexpr CGFloat top = 1034, side = 30;
    constexpr std::int64_t baseline = 1050;
    canvas_.box({{0, top}, {screen.size.width, screen.size.height - top}}, 0, rgb(0x0d1024), 0.75);
    constexpr std::string_view workspaces = "12345";
    for (std::size_t i = 0; i < workspaces.size(); ++i) {
      const bool isShown = i == 0;
      const CGFloat x = 16 + 40 * static_cast<CGFloat>(i);
      canvas_.box({{x, top + 8}, {side, side}}, 6, isShown ? orange : grey, isShown ? 1 : 0.3);
      drawLine(static_cast<std::int64_t>(x) + 10, baseline,
               {{isShown ? ink : white, workspaces.substr(i, 1)}});
    }
    drawLine(250, baseline,
             {{white, "Receiver.cpp   "},
              {grey, "Morning at the lake   "},
              {white, "Terminal   "},
              {grey, "Datagrams a second"}});
    drawLine(1650, baseline, {{green, "5.2 MB/s   "}, {white, "Tue 17:26"}});
  }

  Canvas canvas_{static_cast<std::int64_t>(screen.size.width),
                 static_cast<std::int64_t>(screen.size.height)};
};

}  // namespace demo
