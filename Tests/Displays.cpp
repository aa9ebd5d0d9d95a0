// Compares and saves pictures for the test of the desktop programs.
//   displays compare WHAT WHAT [X Y WIDTH HEIGHT]   prints the similarity in decibels
//   displays save WHAT FILE.png                     saves the picture
// WHAT is a display, such as :1, or a PNG file. The second picture is scaled to the first one's
// size.
#include <fstream>
#include <iostream>

#include "Screenshare/Screen.hpp"
#include "Tests/Pictures.hpp"

using tarnwick::CGRect, tarnwick::NSImage;

std::shared_ptr<NSImage> load(const std::string& what) {
  if (what.starts_with(':')) {
    screenshare::Screen screen(what);
    screen.changes();  // reads the pointer
    if (screen.grab(screen.bounds())) return screen.picture(screen.bounds());
  } else {
    std::ifstream file(what, std::ios::binary);
    if (auto image = NSImage::fromData({std::istreambuf_iterator<char>(file), {}})) return image;
  }
  throw std::runtime_error("no picture: " + what);
}

void compare(NSImage& left, std::shared_ptr<NSImage> right, const CGRect& area) {
  if (right->size() != left.size()) right = resize(*right, left.size());
  const auto one = crop(left, area), other = crop(*right, area);
  std::cout << tarnwick::test::psnr(*one->bitmap(), *other->bitmap()) << "\n";
}

void save(const NSImage& image, const std::string& name) {
  const tarnwick::Data png = image.pngRepresentation().value();
  std::ofstream file(name, std::ios::binary);
  file.write(reinterpret_cast<const char*>(png.data()), std::ssize(png));
  if (!file.flush()) throw std::runtime_error("cannot write " + name);
}

int main(int argc, char** argv) try {
  const std::vector<std::string> words(argv + 1, argv + argc);
  const std::shared_ptr<NSImage> image = load(words.at(1));
  if (words.at(0) == "save") {
    save(*image, words.at(2));
  } else {
    const auto number = [&](std::size_t i) { return std::stod(words[i]); };
    CGRect area{{}, image->size()};
    if (words.size() == 7) area = {{number(3), number(4)}, {number(5), number(6)}};
    compare(*image, load(words.at(2)), area);
  }
  return EXIT_SUCCESS;
} catch (const std::exception& error) {
  std::cerr << "displays: " << error.what() << "\n";
  return EXIT_FAILURE;
}
