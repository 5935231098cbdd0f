#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// A picture that lies under the microscope as if it were a slide: how much red, green and
/// blue light each place of the full frame lets through. Never changes; any thread.
class SlidePicture
{
public:
    /// Reads a picture's file (PNG, TIFF, JPEG; grey or colour), and scales it until it fills
    /// the full frame: what then stands over at two sides is cut off. Nothing if it cannot be
    /// read, with the reason in a sentence.
    static std::shared_ptr<const SlidePicture> read(const std::string& file, std::string& error);

    /// Row y of the full frame: red, green and blue of each pixel, 255 for all light and 0 for none.
    const std::uint8_t* row(int y) const;

private:
    explicit SlidePicture(std::vector<std::uint8_t> rgb) : m_rgb(std::move(rgb)) {}

    std::vector<std::uint8_t> m_rgb;
};
