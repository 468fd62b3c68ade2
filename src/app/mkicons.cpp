// Draws the program's own images and writes them beside the program:
//   quorvel-mkicons <folder>
// The folder "icons" with one 16 by 16 bitmap per node type and the ranked
// sort arrows, "logo.bmp" for the about box, and "Tarnwick.ico" for the
// frame. Empty parts of an icon are (255, 0, 255), the mask colour.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Rgb {
  uint8_t r, g, b;
};
constexpr Rgb kMask{255, 0, 255};

struct Image {
  int w, h;
  std::vector<Rgb> px;
  Image(int width, int height, Rgb fill) : w(width), h(height), px(static_cast<size_t>(width * height), fill) {}
  void set(int x, int y, Rgb c) {
    if (x >= 0 && y >= 0 && x < w && y < h) px[static_cast<size_t>(y * w + x)] = c;
  }
  void rect(int x0, int y0, int x1, int y1, Rgb c) {
    for (int y = y0; y <= y1; ++y)
      for (int x = x0; x <= x1; ++x) set(x, y, c);
  }
  void frame(int x0, int y0, int x1, int y1, Rgb c) {
    for (int x = x0; x <= x1; ++x) set(x, y0, c), set(x, y1, c);
    for (int y = y0; y <= y1; ++y) set(x0, y, c), set(x1, y, c);
  }
  void disc(float cx, float cy, float r, Rgb c) {
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x)
        if ((x + 0.5f - cx) * (x + 0.5f - cx) + (y + 0.5f - cy) * (y + 0.5f - cy) <= r * r) set(x, y, c);
  }
};

// 3 by 5 digits and 5 by 7 capitals for the rank numbers and the logo.
const std::map<char, std::vector<std::string>> kGlyphs = {
    {'1', {".#.", "##.", ".#.", ".#.", "###"}}, {'2', {"##.", "..#", ".#.", "#..", "###"}},
    {'3', {"##.", "..#", ".#.", "..#", "##."}}, {'4', {"#.#", "#.#", "###", "..#", "..#"}},
    {'5', {"###", "#..", "##.", "..#", "##."}}, {'6', {".##", "#..", "###", "#.#", "###"}},
    {'7', {"###", "..#", ".#.", ".#.", ".#."}}, {'8', {"###", "#.#", "###", "#.#", "###"}},
    {'9', {"###", "#.#", "###", "..#", "##."}},
    {'Q', {".###.", "#...#", "#...#", "#...#", "#.#.#", "#..#.", ".##.#"}},
    {'U', {"#...#", "#...#", "#...#", "#...#", "#...#", "#...#", ".###."}},
    {'O', {".###.", "#...#", "#...#", "#...#", "#...#", "#...#", ".###."}},
    {'R', {"####.", "#...#", "#...#", "####.", "#.#..", "#..#.", "#...#"}},
    {'V', {"#...#", "#...#", "#...#", "#...#", "#...#", ".#.#.", "..#.."}},
    {'E', {"#####", "#....", "#....", "####.", "#....", "#....", "#####"}},
    {'L', {"#....", "#....", "#....", "#....", "#....", "#....", "#####"}},
    {'W', {"#...#", "#...#", "#...#", "#.#.#", "#.#.#", "##.##", "#...#"}},
    {'K', {"#...#", "#..#.", "#.#..", "##...", "#.#..", "#..#.", "#...#"}},
    {'B', {"####.", "#...#", "#...#", "####.", "#...#", "#...#", "####."}},
    {'N', {"#...#", "##..#", "#.#.#", "#..##", "#...#", "#...#", "#...#"}},
    {'C', {".###.", "#...#", "#....", "#....", "#....", "#...#", ".###."}},
    {'H', {"#...#", "#...#", "#...#", "#####", "#...#", "#...#", "#...#"}},
    {' ', {".....", ".....", ".....", ".....", ".....", ".....", "....."}},
};

void text(Image& img, int x, int y, const std::string& s, Rgb c, int scale = 1) {
  for (char ch : s) {
    auto it = kGlyphs.find(ch);
    if (it == kGlyphs.end()) continue;
    const auto& rows = it->second;
    for (size_t r = 0; r < rows.size(); ++r)
      for (size_t k = 0; k < rows[r].size(); ++k)
        if (rows[r][k] == '#') img.rect(x + int(k) * scale, y + int(r) * scale, x + int(k + 1) * scale - 1,
                                        y + int(r + 1) * scale - 1, c);
    x += (static_cast<int>(rows[0].size()) + 1) * scale;
  }
}

void put16(std::ofstream& out, uint16_t v) { out.put(char(v & 255)).put(char(v >> 8)); }
void put32(std::ofstream& out, uint32_t v) {
  for (int i = 0; i < 4; ++i) out.put(char((v >> (8 * i)) & 255));
}

// 24 bits a pixel, rows from the bottom, each padded to four bytes.
void writeBmp(const fs::path& path, const Image& img) {
  const uint32_t row = static_cast<uint32_t>((img.w * 3 + 3) / 4 * 4);
  const uint32_t size = row * static_cast<uint32_t>(img.h);
  std::ofstream out(path, std::ios::binary);
  out.write("BM", 2);
  put32(out, 54 + size);
  put32(out, 0);
  put32(out, 54);
  put32(out, 40);
  put32(out, static_cast<uint32_t>(img.w));
  put32(out, static_cast<uint32_t>(img.h));
  put16(out, 1);
  put16(out, 24);
  put32(out, 0);
  put32(out, size);
  put32(out, 2835);
  put32(out, 2835);
  put32(out, 0);
  put32(out, 0);
  for (int y = img.h - 1; y >= 0; --y) {
    uint32_t n = 0;
    for (int x = 0; x < img.w; ++x) {
      const Rgb& p = img.px[static_cast<size_t>(y * img.w + x)];
      out.put(char(p.b)).put(char(p.g)).put(char(p.r));
      n += 3;
    }
    for (; n < row; ++n) out.put(0);
  }
}

// One 32 by 32 image of 32 bits a pixel; the mask colour is transparent.
void writeIco(const fs::path& path, const Image& img) {
  const uint32_t pixels = static_cast<uint32_t>(img.w * img.h * 4);
  const uint32_t andRow = static_cast<uint32_t>((img.w + 31) / 32 * 4);
  const uint32_t andSize = andRow * static_cast<uint32_t>(img.h);
  const uint32_t dib = 40 + pixels + andSize;
  std::ofstream out(path, std::ios::binary);
  put16(out, 0);
  put16(out, 1);
  put16(out, 1);
  out.put(char(img.w)).put(char(img.h)).put(0).put(0);
  put16(out, 1);
  put16(out, 32);
  put32(out, dib);
  put32(out, 22);
  put32(out, 40);
  put32(out, static_cast<uint32_t>(img.w));
  put32(out, static_cast<uint32_t>(img.h * 2));
  put16(out, 1);
  put16(out, 32);
  put32(out, 0);
  put32(out, pixels + andSize);
  for (int i = 0; i < 4; ++i) put32(out, 0);
  auto masked = [](const Rgb& p) { return p.r == kMask.r && p.g == kMask.g && p.b == kMask.b; };
  for (int y = img.h - 1; y >= 0; --y)
    for (int x = 0; x < img.w; ++x) {
      const Rgb& p = img.px[static_cast<size_t>(y * img.w + x)];
      out.put(char(p.b)).put(char(p.g)).put(char(p.r)).put(char(masked(p) ? 0 : 255));
    }
  for (int y = img.h - 1; y >= 0; --y) {
    std::vector<uint8_t> bits(andRow, 0);
    for (int x = 0; x < img.w; ++x)
      if (masked(img.px[static_cast<size_t>(y * img.w + x)])) bits[static_cast<size_t>(x / 8)] |= uint8_t(0x80 >> (x % 8));
    out.write(reinterpret_cast<const char*>(bits.data()), static_cast<std::streamsize>(bits.size()));
  }
}

// A sort arrow with the rank of its key: up for ascending, down for
// descending.
Image arrow(bool up, int rank) {
  Image img(16, 16, kMask);
  const Rgb grey{128, 128, 128};
  for (int row = 0; row < 6; ++row) {
    const int y = up ? 3 + row : 8 - row;
    img.rect(6 - row, y, 6 + row, y, grey);
  }
  text(img, 12, 10, std::to_string(rank), Rgb{64, 64, 64});
  return img;
}

Image typeIcon(const std::string& type) {
  Image img(16, 16, kMask);
  const Rgb black{20, 20, 20};
  auto letter = [&](Rgb fill, const char* c) {
    img.disc(8, 8, 7, fill);
    text(img, 6, 5, c, Rgb{255, 255, 255});
  };
  if (type == "folder") {
    img.rect(1, 3, 6, 5, Rgb{220, 180, 60});
    img.rect(1, 5, 14, 13, Rgb{240, 200, 80});
    img.frame(1, 5, 14, 13, Rgb{150, 110, 20});
  } else if (type == "file") {
    img.rect(3, 1, 12, 14, Rgb{250, 250, 250});
    img.frame(3, 1, 12, 14, Rgb{90, 90, 90});
    for (int y = 4; y <= 11; y += 2) img.rect(5, y, 10, y, Rgb{150, 150, 150});
  } else if (type == "class" || type == "interface") {
    img.rect(2, 2, 13, 13, Rgb{200, 120, 40});
    img.frame(2, 2, 13, 13, black);
    img.rect(2, 6, 13, 6, black);
  } else if (type == "struct" || type == "union") {
    img.rect(2, 2, 13, 13, Rgb{60, 140, 200});
    img.frame(2, 2, 13, 13, black);
    img.rect(2, 6, 13, 6, black);
  } else if (type == "function") {
    img.disc(8, 8, 6, Rgb{160, 60, 200});
  } else if (type == "method") {
    img.disc(8, 8, 6, Rgb{200, 60, 160});
    img.disc(8, 8, 2, Rgb{255, 255, 255});
  } else if (type == "field" || type == "variable" || type == "member") {
    img.rect(4, 4, 11, 11, Rgb{60, 160, 90});
    img.frame(4, 4, 11, 11, black);
  } else if (type == "namespace" || type == "module" || type == "package") {
    img.rect(1, 3, 14, 12, Rgb{120, 120, 200});
    img.frame(1, 3, 14, 12, black);
    img.rect(4, 6, 11, 9, Rgb{240, 240, 255});
  } else if (type == "enum" || type == "constant") {
    letter(Rgb{190, 150, 30}, "E");
  } else if (type == "macro" || type == "typedef") {
    letter(Rgb{110, 110, 110}, type == "macro" ? "H" : "K");
  }
  return img;
}

Image logo() {
  const int w = 240;
  const int h = 180;
  Image img(w, h, Rgb{255, 255, 255});
  const float cx = 120.0f;
  const float cy = 78.0f;
  // Rings of cells round a circle, with gaps, coloured round the circle.
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const float dx = x + 0.5f - cx;
      const float dy = y + 0.5f - cy;
      const float r = std::sqrt(dx * dx + dy * dy);
      const float a = std::atan2(dy, dx);
      const int ring = r >= 40 && r < 50 ? 0 : r >= 52 && r < 62 ? 1 : r >= 64 && r < 70 ? 2 : -1;
      if (ring < 0) continue;
      const int cells = 6 << ring;
      const float t = (a + 3.14159265f) / (2 * 3.14159265f) * static_cast<float>(cells);
      if (t - std::floor(t) < 0.08f) continue;
      const float hue = std::floor(t) / static_cast<float>(cells);
      const float shade = 0.75f + 0.25f * std::cos((r - 40.0f - 12.0f * ring) / 10.0f * 3.14159265f - 1.5f);
      img.set(x, y,
              Rgb{uint8_t(255 * shade * (0.5f + 0.5f * std::cos(6.2832f * hue))),
                  uint8_t(255 * shade * (0.5f + 0.5f * std::cos(6.2832f * (hue - 0.33f)))),
                  uint8_t(255 * shade * (0.5f + 0.5f * std::cos(6.2832f * (hue - 0.66f))))});
    }
  // Bundled curves through the middle.
  for (int k = 0; k < 5; ++k) {
    const float a0 = 0.6f + 0.5f * k;
    const float a1 = a0 + 2.4f;
    for (int i = 0; i <= 200; ++i) {
      const float t = i / 200.0f;
      const float x0 = cx + 38 * std::cos(a0), y0 = cy + 38 * std::sin(a0);
      const float x1 = cx + 38 * std::cos(a1), y1 = cy + 38 * std::sin(a1);
      const float x = (1 - t) * (1 - t) * x0 + 2 * t * (1 - t) * cx + t * t * x1;
      const float y = (1 - t) * (1 - t) * y0 + 2 * t * (1 - t) * cy + t * t * y1;
      img.set(int(x), int(y), Rgb{uint8_t(255 * (1 - t)), 60, uint8_t(255 * t)});
    }
  }
  text(img, 24, 150, "QUORVEL WORKBENCH", Rgb{40, 40, 60}, 2);
  return img;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: quorvel-mkicons <folder>\n";
    return 2;
  }
  const fs::path out = argv[1];
  const fs::path icons = out / "icons";
  std::error_code ec;
  fs::create_directories(icons, ec);
  if (ec) {
    std::cerr << "quorvel-mkicons: cannot make '" << icons.string() << "': " << ec.message() << "\n";
    return 1;
  }
  for (const char* type : {"folder", "file", "class", "interface", "struct", "union", "function", "method", "field",
                           "variable", "member", "namespace", "module", "package", "enum", "constant", "macro",
                           "typedef"})
    writeBmp(icons / (std::string(type) + ".bmp"), typeIcon(type));
  for (int rank = 1; rank <= 9; ++rank) {
    writeBmp(icons / ("arrowupgray" + std::to_string(rank) + ".bmp"), arrow(true, rank));
    writeBmp(icons / ("arrowdowngray" + std::to_string(rank) + ".bmp"), arrow(false, rank));
  }
  writeBmp(out / "logo.bmp", logo());
  Image frameIcon(32, 32, kMask);
  frameIcon.disc(16, 16, 15, Rgb{60, 90, 170});
  frameIcon.disc(16, 16, 10, Rgb{250, 250, 250});
  frameIcon.disc(16, 16, 5, Rgb{220, 120, 40});
  writeIco(out / "Tarnwick.ico", frameIcon);
  return 0;
}
