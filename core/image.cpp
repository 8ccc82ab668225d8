// Image records, handles, parameters, flags, pointers and the image check.
#include "image.h"
#include "lifetime.h"

#include <cstring>

#include "memory.h"
#include "status.h"

namespace pix {
namespace {

constexpr uint32_t kNoMemoryForRecord = status(PIX_MOD_SUPPORT, PIX_ERR_OUT_OF_MEMORY);
constexpr uint32_t kTooManyImages = status(PIX_MOD_SUPPORT, PIX_ERR_MAX_HANDLES);
constexpr uint32_t kImagesRemain = status(PIX_MOD_IMAGE, PIX_ERR_IN_PROGRESS);

void note_free_slot(uint32_t handle) noexcept {
  auto& table = image_table();
  if (handle < table.lowest_free) table.lowest_free = handle;
}

// Releases everything an image owns and empties its slot.
void destroy_one(uint32_t handle) {
  Image* img = find_image(handle);
  if (img == nullptr) return;
  // A lent buffer is freed too: a caller that lent one takes it back first
  // by setting the data pointer to null.
  img->flags &= ~PIX_FLAG_LOCKED;
  PIX_image_free_data(handle);
  memory::release(img->cmap);
  img->cmap = nullptr;
  if (img->cmap_info != nullptr) PIX_cmap_destroy_info(handle);
  if (img->jpeg != nullptr) PIX_JPEG_destroy_Tjpeg(handle);
  memory::release(img);
  image_table().slots[handle] = nullptr;
  note_free_slot(handle);
}

void release_conversion_tables() {
  PIX_destroy_RGB16_to_paletted_LUT();
  PIX_destroy_Y8_to_paletted_LUT();
  PIX_destroy_Y16_to_paletted_LUT();
  PIX_destroy_YUV422_to_RGB16_LUT();
  PIX_destroy_YUV422_to_RGB15_LUT();
  PIX_destroy_YUV422_to_paletted_LUT();
}

uint32_t components(const Image& img) {
  switch (img.format) {
    case PIX_RGB8:
    case PIX_RGB15:
    case PIX_RGB16:
    case PIX_YUV422:
      return 3;
    case PIX_Y16:
      return 1;
    default:
      return img.depth / 8u;
  }
}

// Depth that setting a pixel format implies; 0 for codes that are refused.
uint16_t depth_of_format(uint32_t format) {
  switch (format) {
    case PIX_BILEVEL:
      return 1;
    case PIX_Y8:
    case PIX_PALETTED:
    case PIX_RGB8:
      return 8;
    case PIX_RGB15:
      return 15;
    case PIX_RGB16:
    case PIX_YUV422:
    case PIX_Y16:
    case PIX_WORK16_A:
    case PIX_WORK16_B:
    case PIX_JPEG:
      return 16;
    case PIX_RGB24:
    case PIX_BGR24:
      return 24;
    case PIX_RGBX32:
    case PIX_BGRX32:
    case PIX_XBGR32:
    case PIX_CMYK32:
    case PIX_XRGB32:
    case PIX_JPEG_STAGE_A:
    case PIX_JPEG_STAGE_B:
    case PIX_JPEG_STAGE_C:
    case PIX_HSI:
      return 32;
    default:
      return 0;
  }
}

uint32_t set_format(Image& img, uint32_t value) {
  // The code is stored before any test: a refused code stays in the record,
  // and applications read it back.
  img.format = static_cast<uint16_t>(value);
  const uint16_t format = img.format;
  if (format == PIX_FORMAT_NONE) {
    img.flags &= ~PIX_FLAG_DIB;
    return 0;
  }
  const uint16_t depth = depth_of_format(format);
  if (depth == 0) return report("PIX_image_set_parameter", code::unsupported, "Unrecognized image type");
  img.depth = depth;
  if (format == PIX_Y8 || format == PIX_PALETTED || format == PIX_RGB8) {
    if (format == PIX_PALETTED && img.cmap_size == 0) img.cmap_size = 256;
    img.data_width = 8;
  }
  img.flags &= ~PIX_FLAG_DIB;
  return 0;
}

// The depth test of the image check; 0 when the format and depth agree.
uint32_t check_format(Image& img, uint32_t width) {
  const uint32_t d = img.depth;
  auto fail = [](uint32_t site) { return status(PIX_MOD_IMAGE, PIX_ERR_BAD_IMAGE, site); };
  switch (img.format) {
    case PIX_BILEVEL:
      return d == 1 ? 0 : fail(0x1);
    case PIX_Y8:
      if (d != 8) return fail(0x2);
      img.data_width = 8;
      return 0;
    case PIX_PALETTED:
      if (img.cmap_size == 0) return fail(0x7);
      return d == 8 ? 0 : fail(0x8);
    case PIX_RGB8:
      return d == 8 ? 0 : fail(0xD);
    case PIX_RGB15:
      return d == 15 ? 0 : fail(0xC);
    case PIX_RGB16:
    case PIX_YUV422:
    case PIX_WORK16_A:
    case PIX_JPEG:
      return d == 16 ? 0 : fail(0x9);
    case PIX_RGB24:
    case PIX_BGR24:
      return d == 24 ? 0 : fail(0x3);
    case PIX_RGBX32:
    case PIX_BGRX32:
    case PIX_XBGR32:
    case PIX_CMYK32:
    case PIX_XRGB32:
    case PIX_JPEG_STAGE_A:
    case PIX_HSI:
      return d == 32 ? 0 : fail(0x4);
    case PIX_Y16:
      if (img.data_width < 1 || img.data_width > 16) return fail(0xA);
      return d == 16 ? 0 : fail(0xB);
    case PIX_JPEG_STAGE_B:
    case PIX_JPEG_STAGE_C:
      if (d != 32) return fail(0x5);
      if (width > 0xFFFFFFFFu / 8) return code::bad_image;
      img.bytes_per_line = 8 * width;  // blocks of 32-bit values, no padding
      return 0;
    case PIX_WORK16_B:
      if (d != 16) return fail(0x6);
      img.bytes_per_line = 4 * width;
      return 0;
    default:
      return fail(0xE);
  }
}

}  // namespace

uint32_t check_record(Image& img) noexcept {
  if (img.num_frames < 2) img.num_frames = 1;
  // A zero alignment or a line whose length does not fit 32 bits would make
  // every later size wrong: such a record is refused as invalid.
  const uint64_t pixels = static_cast<uint64_t>(pixel_bytes(img.depth)) * img.width;
  if (img.line_align == 0 || pixels + img.line_align > 0xFFFFFFFFull) return code::bad_image;
  img.skip_bytes = PIX_image_calc_skip_bytes(img.width, img.depth, img.line_align);
  img.bytes_per_line = static_cast<uint32_t>(pixels) + img.skip_bytes;
  return check_format(img, img.width);
}

namespace {

template <class Field>
uint32_t field_or_zero(uint32_t handle, Field Image::*field) {
  const Image* img = find_image(handle);
  return img != nullptr ? img->*field : 0;
}

}  // namespace

ImageTable& image_table() noexcept {
  static ImageTable table;
  return table;
}

Image* find_image(uint32_t handle) noexcept {
  if (handle == 0 || handle > kMaxImageHandle) return nullptr;
  return image_table().slots[handle];
}

void copy_name(char (&field)[PIX_NAME_LENGTH], const char* text) noexcept {
  if (text == nullptr) text = "";
  std::size_t n = 0;
  while (n < PIX_NAME_LENGTH - 1 && text[n] != '\0') ++n;
  std::memmove(field, text, n);
  field[n] = '\0';
}

uint32_t check_reported(uint32_t handle, const char* function, const char* message) {
  const uint32_t result = PIX_image_check(handle);
  if (is_error(result)) report(function, result, message);
  return result;
}

}  // namespace pix

using namespace pix;

extern "C" {

PIX_API tPIX_Colour* PIX_CALL PIX_image_create_cmap(void) {
  auto* map = memory::allocate_array<tPIX_Colour>(PIX_CMAP_ENTRIES);
  if (map != nullptr) std::memset(map, 0xAA, PIX_CMAP_ENTRIES * sizeof(tPIX_Colour));
  return map;
}

PIX_API uint32_t PIX_CALL PIX_image_create(void) {
  auto& table = image_table();
  uint32_t handle = table.lowest_free;
  while (handle <= kMaxImageHandle && table.slots[handle] != nullptr) ++handle;
  if (handle > kMaxImageHandle) {
    table.lowest_free = handle;
    return report("PIX_image_create", kTooManyImages);
  }
  table.lowest_free = handle + 1;
  auto* img = static_cast<Image*>(memory::allocate(sizeof(Image)));
  if (img == nullptr) {
    table.lowest_free = handle;
    return report("PIX_image_create", kNoMemoryForRecord);
  }
  table.slots[handle] = img;
  *img = Image{};
  img->line_align = 2;
  img->start_frame = 1;
  img->lines_this_strip = 8;
  img->cmap = PIX_image_create_cmap();
  // Kept: the record stays in its slot without a colour map.
  if (img->cmap == nullptr) return report("PIX_image_create", code::out_of_memory);
  return handle;
}

PIX_API uint32_t PIX_CALL PIX_image_destroy(uint32_t handle) {
  auto& table = image_table();
  if (handle == PIX_ALL_IMAGES) {
    for (uint32_t h = 1; h <= kMaxImageHandle; ++h) {
      if (table.slots[h] != nullptr) destroy_one(h);
    }
    PIX_CK_destroy(PIX_ALL_IMAGES);
    PIX_LUT_destroy(PIX_ALL_IMAGES);
    PIX_display_destroy(PIX_ALL_IMAGES);
    PIX_CK_destroy_UV_to_hue_LUT();
    release_conversion_tables();
    run_releases();  // open file transfers are forgotten, their streams closed
    return 0;
  }
  if (handle == PIX_CHECK_IMAGES) {
    for (uint32_t h = 1; h <= kMaxImageHandle; ++h) {
      if (table.slots[h] != nullptr) return kImagesRemain;  // not reported
    }
    release_conversion_tables();
    return 0;
  }
  destroy_one(handle);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_image_get_parameter(uint32_t handle, uint16_t id) {
  static constexpr const char* kName = "PIX_image_get_parameter";
  if (id == PIX_LIBRARY_ID) return PIX_LIBRARY_ID_VALUE;
  const Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle);
  switch (id) {
    case PIX_IMAGE_FORMAT: return img->format;
    case PIX_IMAGE_WIDTH: return img->width;
    case PIX_IMAGE_HEIGHT: return img->height;
    case PIX_IMAGE_DEPTH: return img->depth;
    case PIX_LINES_THIS_STRIP: return img->lines_this_strip;
    case PIX_BYTES_PER_LINE: return img->bytes_per_line;
    case PIX_USER_VALUE: return img->user_value;
    case PIX_DATA_WIDTH: return img->data_width;
    case PIX_NUM_FRAMES: return img->num_frames;
    case PIX_START_FRAME: return img->start_frame;
    case PIX_CMAP_SIZE: return img->cmap_size;
    case PIX_JPEG_LENGTH:
      if (img->jpeg == nullptr) return report(kName, code::bad_handle, "JPEG structure does not exist");
      return img->jpeg->length;
    case PIX_FIELD_ORDER: return img->field_order;
    case PIX_LINE_ALIGN: return img->line_align;
    case PIX_OUT_LINE_ALIGN: return img->out_line_align;
    case PIX_COMPONENTS: return components(*img);
    default: return report(kName, code::bad_parameter, "Unknown parameter");
  }
}

PIX_API uint32_t PIX_CALL PIX_image_set_parameter(uint32_t handle, uint16_t id, uint32_t value) {
  static constexpr const char* kName = "PIX_image_set_parameter";
  Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle);
  switch (id) {
    case PIX_IMAGE_FORMAT: return set_format(*img, value);
    case PIX_IMAGE_WIDTH: img->width = value; break;
    case PIX_IMAGE_HEIGHT: img->height = value; break;
    case PIX_IMAGE_DEPTH: img->depth = static_cast<uint16_t>(value); break;
    case PIX_LINES_THIS_STRIP: img->lines_this_strip = value; break;
    case PIX_BYTES_PER_LINE: img->bytes_per_line = value; break;
    case PIX_USER_VALUE: img->user_value = value; break;
    case PIX_DATA_WIDTH: img->data_width = static_cast<uint16_t>(value); break;
    case PIX_NUM_FRAMES: img->num_frames = value; break;
    case PIX_START_FRAME: img->start_frame = value; break;
    case PIX_CMAP_SIZE: img->cmap_size = static_cast<uint16_t>(value); break;
    case PIX_JPEG_LENGTH:
      if (img->jpeg == nullptr) return report(kName, code::bad_handle, "JPEG structure does not exist");
      img->jpeg->length = value;
      break;
    case PIX_FIELD_ORDER: img->field_order = static_cast<uint16_t>(value); break;
    case PIX_LINE_ALIGN: img->line_align = value; break;
    case PIX_OUT_LINE_ALIGN: img->out_line_align = value; break;
    default: return report(kName, code::bad_parameter);
  }
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_image_get_flags(uint32_t handle, uint32_t mask) {
  const Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_image_get_flags", code::bad_handle);
  return (img->flags & mask) != 0 ? 1 : 0;
}

PIX_API uint32_t PIX_CALL PIX_image_set_flags(uint32_t handle, uint32_t mask, int32_t on) {
  auto apply = [mask, on](Image& img) {
    if (on == 1) {
      img.flags |= mask;
    } else {
      img.flags &= ~mask;
    }
  };
  if (handle == PIX_ALL_IMAGES) {
    for (Image* img : image_table().slots) {
      if (img != nullptr) apply(*img);
    }
    return 0;
  }
  Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_image_set_flags", code::bad_handle);
  apply(*img);
  return 0;
}

PIX_API void* PIX_CALL PIX_image_get_ptr(uint32_t handle, uint16_t id) {
  Image* img = find_image(handle);
  if (img == nullptr) return nullptr;
  switch (id) {
    case PIX_PTR_DATA: return img->data;
    case PIX_PTR_CMAP: return img->cmap;
    case PIX_PTR_JPEG_DATA: return img->jpeg != nullptr ? img->jpeg->data : nullptr;
    case PIX_PTR_JPEG_POS: return img->jpeg != nullptr ? img->jpeg->position : nullptr;
    case PIX_PTR_RECORD: return img;
    case PIX_PTR_TJPEG: return img->jpeg;
    default: return nullptr;
  }
}

PIX_API uint32_t PIX_CALL PIX_image_set_ptr(uint32_t handle, uint16_t id, void* pointer) {
  static constexpr const char* kName = "PIX_image_set_ptr";
  Image* img = find_image(handle);
  if (img == nullptr) return report(kName, code::bad_handle);
  switch (id) {
    case PIX_PTR_DATA: img->data = static_cast<uint8_t*>(pointer); return 0;
    case PIX_PTR_CMAP: img->cmap = static_cast<tPIX_Colour*>(pointer); return 0;
    case PIX_PTR_JPEG_DATA:
    case PIX_PTR_JPEG_POS:
      if (img->jpeg == nullptr) return report(kName, code::bad_handle, "Not a JPEG image");
      (id == PIX_PTR_JPEG_DATA ? img->jpeg->data : img->jpeg->position) = static_cast<uint8_t*>(pointer);
      return 0;
    case PIX_PTR_RECORD:
      // The old record is neither checked nor freed: the caller swaps records.
      image_table().slots[handle] = static_cast<Image*>(pointer);
      if (pointer == nullptr) note_free_slot(handle);
      return 0;
    case PIX_PTR_TJPEG: img->jpeg = static_cast<Tjpeg*>(pointer); return 0;
    default: return report(kName, code::bad_parameter, "Unrecognized pointer type");
  }
}

PIX_API char* PIX_CALL PIX_image_get_infilename(uint32_t handle) {
  Image* img = find_image(handle);
  return img != nullptr ? img->in_filename : nullptr;
}

PIX_API char* PIX_CALL PIX_image_get_outfilename(uint32_t handle) {
  Image* img = find_image(handle);
  return img != nullptr ? img->out_filename : nullptr;
}

PIX_API uint32_t PIX_CALL PIX_image_set_infilename(uint32_t handle, const char* name) {
  Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_image_set_infilename", code::bad_handle);
  copy_name(img->in_filename, name);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_image_set_outfilename(uint32_t handle, const char* name) {
  Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_image_set_outfilename", code::bad_handle);
  copy_name(img->out_filename, name);
  return 0;
}

PIX_API uint32_t PIX_CALL PIX_copy_outfilename(uint32_t to_handle, uint32_t from_handle) {
  Image* to = find_image(to_handle);
  const Image* from = find_image(from_handle);
  if (to != nullptr && from != nullptr) copy_name(to->out_filename, from->out_filename);
  return 0;
}

// The quick accessors do no checking for the caller: a bad handle reads as 0.
PIX_API uint32_t PIX_CALL PIX_get_width(uint32_t handle) { return field_or_zero(handle, &Image::width); }
PIX_API uint32_t PIX_CALL PIX_get_height(uint32_t handle) { return field_or_zero(handle, &Image::height); }
PIX_API uint32_t PIX_CALL PIX_get_depth(uint32_t handle) { return field_or_zero(handle, &Image::depth); }
PIX_API uint32_t PIX_CALL PIX_get_bytes_per_line(uint32_t handle) {
  return field_or_zero(handle, &Image::bytes_per_line);
}
PIX_API uint32_t PIX_CALL PIX_get_lines_this_strip(uint32_t handle) {
  return field_or_zero(handle, &Image::lines_this_strip);
}

PIX_API uint32_t PIX_CALL PIX_image_calc_skip_bytes(uint32_t width, uint32_t depth, uint32_t align) {
  if (align == 0) return 0;  // no alignment asked: no padding (guards the division)
  const uint32_t bytes = pixel_bytes(depth) * width;
  const uint32_t r = bytes % align;
  return r == 0 ? 0 : align - r;
}

PIX_API uint32_t PIX_CALL PIX_image_check(uint32_t handle) {
  Image* img = find_image(handle);
  if (img == nullptr) return code::bad_image;
  return check_record(*img);
}

PIX_API uint32_t PIX_CALL PIX_image_is_colour(uint32_t handle) {
  const Image* img = find_image(handle);
  if (img == nullptr) return report("PIX_image_is_colour", code::bad_handle);
  if (img->format == PIX_PALETTED) return PIX_cmap_is_grayscale(handle) == 1 ? 0 : 1;
  if ((img->format >= PIX_RGB8 && img->format <= PIX_CMYK32) || img->format == PIX_JPEG) return 1;
  return 0;
}

}  // extern "C"
