/*
 * pix95.h - public interface of the pix95 image library.
 *
 * Plain C99, usable from C and C++.  Every function returns a 32-bit status
 * code unless its declaration says otherwise; a code is an error when
 * PIX_IS_ERROR(code) is true.  Images, lookup tables, chroma-key objects and
 * displays are addressed by small integer handles.
 *
 * Strip-wise functions take a strip command as their last argument:
 * PIX_STRIP_NEXT (3) processes the strip the input holds now, PIX_STRIP_FINISH
 * (4) ends a transfer, any other value only describes the output image.
 */
#ifndef PIX95_H
#define PIX95_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#if defined(_WIN32)
#  if defined(PIX95_BUILDING)
#    define PIX_API
#  else
#    define PIX_API __declspec(dllimport)
#  endif
#  if defined(PIX95_STATIC)
#    undef PIX_API
#    define PIX_API
#  endif
#else
#  if defined(PIX95_BUILDING) && defined(__GNUC__)
#    define PIX_API __attribute__((visibility("default")))
#  else
#    define PIX_API
#  endif
#endif

/* Calling convention of every exported function (the C default). */
#ifndef PIX_CALL
#  define PIX_CALL
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Status codes                                                             */
/* ------------------------------------------------------------------------ */

/* Module byte (bits 24-31). */
#define PIX_MOD_IMAGE   0x10u
#define PIX_MOD_SUPPORT 0x18u

/* Bit 23: a silent code never reaches the error handler. */
#define PIX_SILENT 0x00800000u

#define PIX_STATUS(module, number, detail) \
  ((uint32_t)(((uint32_t)(module) << 24) | ((uint32_t)(number) << 16) | ((uint32_t)(detail) & 0xFFFFu)))
#define PIX_IS_ERROR(code) ((((uint32_t)(code)) & 0x00FF0000u) != 0u)
#define PIX_ERROR_NUMBER(code) ((((uint32_t)(code)) >> 16) & 0xFFu)

#define PIX_OK 0u

/* Error numbers (bits 16-22). */
#define PIX_ERR_BAD_HANDLE           1
#define PIX_ERR_REGISTER             2
#define PIX_ERR_BAD_IMAGE            3
#define PIX_ERR_OPT_UNSUPPORTED      20
#define PIX_ERR_OPT_INCOMPATIBLE     21
#define PIX_ERR_OPT_NOT_IMPLEMENTED  22
#define PIX_ERR_OPT_UNRECOGNISED     23
#define PIX_ERR_BAD_PARAMETER        40
#define PIX_ERR_OUT_OF_RANGE         41
#define PIX_ERR_PARAM_CONFLICT       42
#define PIX_ERR_HW_FAILURE           60
#define PIX_ERR_HW_NOT_FOUND         61
#define PIX_ERR_MODULE_UNKNOWN       62
#define PIX_ERR_BASEBOARD_UNKNOWN    63
#define PIX_ERR_NO_VIDEO             64
#define PIX_ERR_HW_TIMEOUT           65
#define PIX_ERR_VIDEO_UNLOCKED       66
#define PIX_ERR_SYS_OVERFLOW         67
#define PIX_ERR_PARITY               68
#define PIX_ERR_OUT_OF_MEMORY        80
#define PIX_ERR_THREAD               81
#define PIX_ERR_DRIVER               82
#define PIX_ERR_SYSCALL              83
#define PIX_ERR_OPEN                 100
#define PIX_ERR_CLOSE                101
#define PIX_ERR_READ                 102
#define PIX_ERR_WRITE                103
#define PIX_ERR_SEEK                 104
#define PIX_ERR_CORRUPT              105
#define PIX_ERR_MAX_HANDLES          120
#define PIX_ERR_INTERNAL             121
#define PIX_ERR_IN_PROGRESS          122
#define PIX_ERR_VERSIONS             123
#define PIX_ERR_BAD_STATE            124

/* Error handler: function name, status code, message (possibly empty). */
typedef uint32_t (PIX_CALL *tKVB_Err_handler)(const char *function, uint32_t code,
                                              const char *message);

/* ------------------------------------------------------------------------ */
/* Handles, pixel formats, parameters, flags, pointer ids                    */
/* ------------------------------------------------------------------------ */

#define PIX_ALL_IMAGES   0x10001u
#define PIX_CHECK_IMAGES 0x10002u

/* Strip commands. */
#define PIX_STRIP_NEXT   3
#define PIX_STRIP_FINISH 4
#define PIX_STRIP_FRAME  5

/* Pixel formats. */
#define PIX_FORMAT_NONE   0
#define PIX_BILEVEL       1
#define PIX_Y8            2
#define PIX_PALETTED      3
#define PIX_RGB8          4
#define PIX_RGB15         5
#define PIX_RGB16         6
#define PIX_RGB24         7
#define PIX_BGR24         8
#define PIX_RGBX32        9
#define PIX_BGRX32        10
#define PIX_XBGR32        11
#define PIX_YUV422        12
#define PIX_CMYK32        13
#define PIX_Y16           14
#define PIX_XRGB32        15
#define PIX_JPEG_STAGE_A  100
#define PIX_JPEG_STAGE_B  101
#define PIX_JPEG_STAGE_C  102
#define PIX_WORK16_A      103
#define PIX_WORK16_B      104
#define PIX_RGB24_OR_Y8   105
#define PIX_JPEG          106
#define PIX_HSI           108

/* Image parameter ids. */
#define PIX_IMAGE_FORMAT      10
#define PIX_IMAGE_WIDTH       11
#define PIX_IMAGE_HEIGHT      12
#define PIX_IMAGE_DEPTH       13
#define PIX_LINES_THIS_STRIP  14
#define PIX_BYTES_PER_LINE    15
#define PIX_USER_VALUE        16
#define PIX_DATA_WIDTH        17
#define PIX_NUM_FRAMES        18
#define PIX_START_FRAME       19
#define PIX_CMAP_SIZE         20
#define PIX_JPEG_LENGTH       21
#define PIX_LIBRARY_ID        22
#define PIX_FIELD_ORDER       23
#define PIX_LINE_ALIGN        24
#define PIX_OUT_LINE_ALIGN    25
#define PIX_COMPONENTS        26

/* Image flags. */
#define PIX_FLAG_LOCKED       1u
#define PIX_FLAG_JPEG         2u
#define PIX_FLAG_DIB          4u
#define PIX_FLAG_USE_LUT      16u
#define PIX_FLAG_FIELD_MODE   32u
#define PIX_FLAG_DITHER       128u

/* Pointer ids. */
#define PIX_PTR_DATA       100
#define PIX_PTR_CMAP       101
#define PIX_PTR_JPEG_DATA  102
#define PIX_PTR_JPEG_POS   103
#define PIX_PTR_RECORD     104
#define PIX_PTR_TJPEG      105

/* File-format codes. */
#define PIX_FILE_UNRECOGNISED 0
#define PIX_FILE_MEMORY       1
#define PIX_FILE_PENDING      2
#define PIX_FILE_TIFF         3
#define PIX_FILE_TGA          5
#define PIX_FILE_JPEG         8
#define PIX_FILE_EPS          9
#define PIX_FILE_BMP          10
#define PIX_FILE_RAW          11

/* Conversion lookup-table types. */
#define PIX_LUT_RGB16_TO_PALETTED   200
#define PIX_LUT_Y8_TO_PALETTED      201
#define PIX_LUT_Y16_TO_PALETTED     202
#define PIX_LUT_YUV422_TO_RGB16     203
#define PIX_LUT_YUV422_TO_RGB15     204
#define PIX_LUT_YUV422_TO_PALETTED  205

/* General lookup-table channels. */
#define PIX_LUT_GREY   8
#define PIX_LUT_RED    4
#define PIX_LUT_GREEN  2
#define PIX_LUT_BLUE   1

/* JPEG parameter ids. */
#define PIX_JPEG_COMPONENTS     600
#define PIX_JPEG_HEADER_LENGTH  601
#define PIX_JPEG_NUM_QTABLES    602

/* Chroma-key parameter and component ids. */
#define PIX_CK_HUE_CENTRE       300
#define PIX_CK_HUE_HALF_WIDTH   301
#define PIX_CK_LUMA_CENTRE      302
#define PIX_CK_LUMA_HALF_WIDTH  303
#define PIX_CK_COMPONENT_Y      500
#define PIX_CK_COMPONENT_U      501
#define PIX_CK_COMPONENT_V      503

/* Display parameter ids and flags. */
#define PIX_DISPLAY_USER_VALUE32  400
#define PIX_DISPLAY_USER_VALUE16  401
#define PIX_DISPLAY_DD_CAPS       402
#define PIX_DISPLAY_FLAG_DEFAULT     1u
#define PIX_DISPLAY_FLAG_DIRECT_DRAW 2u
#define PIX_DISPLAY_FLAG_FIT         4u
#define PIX_DISPLAY_FLAG_KEEP_ASPECT 8u

/* Value returned for PIX_LIBRARY_ID. */
#define PIX_LIBRARY_ID_VALUE 0x9CB5u

/* Platform handles as the display functions see them (HWND and HDC on Windows). */
typedef void *PIX_HWND;
typedef void *PIX_HDC;

/* ------------------------------------------------------------------------ */
/* Records that applications receive pointers to                            */
/* ------------------------------------------------------------------------ */

/* One colour-map entry; a colour map holds 256 of them. */
typedef struct tPIX_Colour {
  uint8_t red;
  uint8_t green;
  uint8_t blue;
  uint8_t spare;
} tPIX_Colour;

#define PIX_CMAP_ENTRIES 256
#define PIX_CMAP_CELLS   4096

typedef struct tPIX_Cmap_cell {
  uint32_t cube_index;
  uint32_t occurrences;
  uint32_t cmap_index; /* 0xFFFFFFFF: no colour-map entry */
} tPIX_Cmap_cell;

/* Colour-map statistics block (histogram cells of PIX_cmap_generate). */
typedef struct tPIX_Cmap_info {
  tPIX_Cmap_cell cells[PIX_CMAP_CELLS];
  uint32_t cube_size;
  uint8_t red_bits;
  uint8_t green_bits;
  uint8_t blue_bits;
  uint8_t grey_bits;
  uint16_t entries_generated;
  uint32_t non_empty_cells;
  uint16_t coverage;
  uint8_t reserved[4];
} tPIX_Cmap_info;

/* JPEG state record hanging from a JPEG image. */
typedef struct Tjpeg {
  FILE *file;
  uint32_t header_length;
  uint8_t *data;
  uint8_t *position;
  uint32_t length;
  uint16_t Q_scale;
  uint32_t work;
  uint16_t Lf;
  uint16_t P;
  uint16_t H[4];
  uint16_t V[4];
  uint16_t Lq;
  uint16_t Tq[4];
  uint16_t Nq;
  uint8_t Q_tables[4][64];
  uint16_t DHT_length;
  uint16_t table_ids[5];
  uint8_t BITS[4][16];
  uint8_t HUFFVAL[4][256];
  uint16_t Ls;
  uint16_t Ns;
  uint8_t Ss;
  uint8_t Se;
  uint8_t AhAl;
} Tjpeg;

/* Image record. */
#define PIX_NAME_LENGTH 128

typedef struct tPIX_Image {
  uint16_t format;
  uint16_t data_width;
  char name[PIX_NAME_LENGTH];
  char in_filename[PIX_NAME_LENGTH];
  char out_filename[PIX_NAME_LENGTH];
  uint32_t width;
  uint32_t height;
  uint16_t depth;
  uint32_t line_align;
  uint32_t out_line_align;
  uint32_t skip_bytes;
  uint32_t num_frames;
  uint32_t start_frame;
  uint8_t *data;
  uint32_t data_aux;
  uint32_t user_value;
  uint32_t flags;
  uint16_t cmap_size;
  tPIX_Colour *cmap;
  tPIX_Cmap_info *cmap_info;
  uint32_t lines_this_strip;
  uint32_t bytes_per_line;
  uint16_t field_order;
  Tjpeg *jpeg;
} tPIX_Image;

/* Mean hue, saturation and intensity of an image. */
typedef struct tPIX_Average {
  uint32_t hue;
  uint32_t saturation;
  uint32_t intensity;
} tPIX_Average;

/* Histogram of a PIX_HSI image: 875 counters. */
typedef struct tPIX_Histogram {
  uint32_t hue[360];
  uint32_t saturation[256];
  uint32_t intensity[256];
  uint32_t hue_total;
  uint32_t saturation_total;
  uint32_t intensity_total;
} tPIX_Histogram;

/* Command line split by parse_command. */
#define KVB_MAX_OPTIONS   3
#define KVB_MAX_ARGUMENTS 64
#define KVB_TEXT_LENGTH   128

typedef struct tKVB_Command {
  uint16_t argument_total;
  char program[KVB_TEXT_LENGTH];
  uint16_t option_count;
  char options[KVB_MAX_OPTIONS][KVB_TEXT_LENGTH];
  uint16_t argument_count;
  char arguments[KVB_MAX_ARGUMENTS][KVB_TEXT_LENGTH];
} tKVB_Command;

/* FPGA configuration data loaded from an .rbt file. */
typedef struct tKVB_FPGA_Data {
  uint32_t reserved;
  uint8_t *data;   /* allocated with malloc: the caller frees it */
  uint32_t length; /* in bits */
} tKVB_FPGA_Data;

/* ------------------------------------------------------------------------ */
/* Status codes and error reporting                                         */
/* ------------------------------------------------------------------------ */

PIX_API uint32_t PIX_CALL KVB_err_process(const char *function, uint32_t code, const char *message);
PIX_API uint32_t PIX_CALL KVB_err_set_reporting(uint32_t mode, tKVB_Err_handler handler);
PIX_API uint32_t PIX_CALL KVB_err_display(const char *function, uint32_t code, const char *message);

/* ------------------------------------------------------------------------ */
/* Image record, handles and parameters                                     */
/* ------------------------------------------------------------------------ */

PIX_API uint32_t PIX_CALL PIX_image_create(void);
PIX_API uint32_t PIX_CALL PIX_image_destroy(uint32_t handle);
PIX_API tPIX_Colour *PIX_CALL PIX_image_create_cmap(void);
PIX_API uint32_t PIX_CALL PIX_image_get_parameter(uint32_t handle, uint16_t id);
PIX_API uint32_t PIX_CALL PIX_image_set_parameter(uint32_t handle, uint16_t id, uint32_t value);
PIX_API uint32_t PIX_CALL PIX_image_get_flags(uint32_t handle, uint32_t mask);
PIX_API uint32_t PIX_CALL PIX_image_set_flags(uint32_t handle, uint32_t mask, int32_t on);
PIX_API void *PIX_CALL PIX_image_get_ptr(uint32_t handle, uint16_t id);
PIX_API uint32_t PIX_CALL PIX_image_set_ptr(uint32_t handle, uint16_t id, void *pointer);
PIX_API char *PIX_CALL PIX_image_get_infilename(uint32_t handle);
PIX_API char *PIX_CALL PIX_image_get_outfilename(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_image_set_infilename(uint32_t handle, const char *name);
PIX_API uint32_t PIX_CALL PIX_image_set_outfilename(uint32_t handle, const char *name);
PIX_API uint32_t PIX_CALL PIX_copy_outfilename(uint32_t to_handle, uint32_t from_handle);
PIX_API uint32_t PIX_CALL PIX_get_width(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_get_height(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_get_depth(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_get_bytes_per_line(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_get_lines_this_strip(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_image_calc_skip_bytes(uint32_t width, uint32_t depth, uint32_t align);
PIX_API uint32_t PIX_CALL PIX_image_check(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_image_is_colour(uint32_t handle);

/* ------------------------------------------------------------------------ */
/* Image data and strips                                                    */
/* ------------------------------------------------------------------------ */

PIX_API uint32_t PIX_CALL PIX_image_malloc_a_strip(uint32_t handle);
PIX_API uint8_t *PIX_CALL PIX_malloc_N_lines(uint32_t handle, uint16_t lines);
PIX_API uint32_t PIX_CALL PIX_image_free_data(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_image_copy_parameters(uint32_t from, uint32_t to);
PIX_API uint32_t PIX_CALL PIX_image_copy(uint32_t from, uint32_t to);
PIX_API uint32_t PIX_CALL PIX_image_move(uint32_t from, uint32_t to);
PIX_API uint32_t PIX_CALL PIX_image_calc_total_strips(uint32_t handle);

/* ------------------------------------------------------------------------ */
/* Conversion                                                               */
/* ------------------------------------------------------------------------ */

PIX_API uint32_t PIX_CALL PIX_image_convert(uint32_t in, uint32_t out, uint16_t target,
                                            uint32_t out_flags, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_Y8(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_RGBX32(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_BGRX32(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_XBGR32(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_XRGB32(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_RGB24(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_BGR24(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_RGB16(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_RGB15(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_Y16(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_CMYK32(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_paletted_to_RGB24_or_Y8(uint32_t in, uint32_t out, uint16_t command);

/* Colour maps and paletted conversion. */
PIX_API uint32_t PIX_CALL PIX_cmap_set_RGB_colour(uint32_t handle, uint16_t index, uint8_t red,
                                                  uint8_t green, uint8_t blue);
PIX_API uint32_t PIX_CALL PIX_cmap_get_RGB_colour(uint32_t handle, uint16_t index);
PIX_API uint32_t PIX_CALL PIX_cmap_set_colour(uint32_t handle, uint16_t index, uint16_t colour);
PIX_API uint32_t PIX_CALL PIX_cmap_set_type(uint32_t handle, uint16_t type);
PIX_API uint32_t PIX_CALL PIX_cmap_is_grayscale(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_cmap_find_closest_colour(uint32_t handle, uint8_t red, uint8_t green,
                                                       uint8_t blue);
PIX_API tPIX_Cmap_info *PIX_CALL PIX_cmap_create_info(void);
PIX_API uint32_t PIX_CALL PIX_cmap_copy(uint32_t from, uint32_t to);
PIX_API uint32_t PIX_CALL PIX_cmap_destroy_info(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_cmap_get_occurrences(uint32_t handle, uint16_t cell);
PIX_API uint32_t PIX_CALL PIX_cmap_generate(uint32_t handle, uint16_t entries, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_paletted(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_paletted_LUT(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_RGB8(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_RGB8_dither(uint32_t in, uint32_t out, uint16_t command);

/* YUV 4:2:2 conversions. */
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGBX32(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_BGRX32(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_XBGR32(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_XRGB32(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB24(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_BGR24(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB16(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB15(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_Y8(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_HSI(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_YUV422(uint32_t in, uint32_t out, uint16_t command);

/* Conversion lookup tables and LUT files. */
PIX_API uint32_t PIX_CALL PIX_image_conv_LUT_generate(uint32_t handle, uint16_t type);
PIX_API uint32_t PIX_CALL PIX_image_conv_LUT_destroy(uint16_t type);
PIX_API uint32_t PIX_CALL PIX_image_conv_LUT_save(uint32_t handle, uint16_t type, const char *file_name);
PIX_API uint32_t PIX_CALL PIX_image_conv_LUT_load(uint32_t handle, uint16_t type, const char *file_name);
PIX_API uint32_t PIX_CALL PIX_generate_RGB16_to_paletted_LUT(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_generate_Y8_to_paletted_LUT(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_generate_Y16_to_paletted_LUT(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_generate_YUV422_to_paletted_LUT(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_generate_YUV422_to_RGB16_LUT(void);
PIX_API uint32_t PIX_CALL PIX_generate_YUV422_to_RGB15_LUT(void);
PIX_API uint32_t PIX_CALL PIX_destroy_RGB16_to_paletted_LUT(void);
PIX_API uint32_t PIX_CALL PIX_destroy_Y8_to_paletted_LUT(void);
PIX_API uint32_t PIX_CALL PIX_destroy_Y16_to_paletted_LUT(void);
PIX_API uint32_t PIX_CALL PIX_destroy_YUV422_to_RGB16_LUT(void);
PIX_API uint32_t PIX_CALL PIX_destroy_YUV422_to_RGB15_LUT(void);
PIX_API uint32_t PIX_CALL PIX_destroy_YUV422_to_paletted_LUT(void);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGBX32_LUT(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_BGRX32_LUT(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_XBGR32_LUT(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_XRGB32_LUT(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB24_LUT(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_BGR24_LUT(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB16_LUT(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_RGB15_LUT(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_YUV422_to_paletted_LUT(uint32_t in, uint32_t out, uint16_t command);

/* General lookup tables. */
PIX_API uint32_t PIX_CALL PIX_LUT_create(uint32_t entries, uint16_t element_size);
PIX_API void *PIX_CALL PIX_LUT_get_ptr(uint32_t lut, uint16_t channel);
PIX_API uint32_t PIX_CALL PIX_LUT_generate(uint32_t lut, int16_t brightness, int16_t contrast,
                                           int16_t gamma, int16_t red_gain, int16_t green_gain,
                                           int16_t blue_gain);
PIX_API uint32_t PIX_CALL PIX_LUT_apply(uint32_t in, uint32_t out, uint32_t lut, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_LUT_destroy(uint32_t lut);

/* ------------------------------------------------------------------------ */
/* Image files                                                              */
/* ------------------------------------------------------------------------ */

PIX_API uint32_t PIX_CALL PIX_image_find_file_format(const char *file_name);
PIX_API uint32_t PIX_CALL PIX_image_read(uint32_t handle, uint32_t memory_handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_image_write(uint32_t handle, uint32_t memory_handle, uint16_t file_format,
                                          uint16_t command);

/* Byte-order helpers: "i" least significant byte first, "m" most significant first. */
PIX_API uint16_t PIX_CALL get_ui16i(FILE *stream);
PIX_API uint16_t PIX_CALL get_ui16m(FILE *stream);
PIX_API uint32_t PIX_CALL get_ui32i(FILE *stream);
PIX_API uint32_t PIX_CALL get_ui32m(FILE *stream);
PIX_API int PIX_CALL put_ui8(FILE *stream, uint8_t value);
PIX_API int PIX_CALL put_ui16i(FILE *stream, uint16_t value);
PIX_API int PIX_CALL put_ui16m(FILE *stream, uint16_t value);
PIX_API int PIX_CALL put_ui32i(FILE *stream, uint32_t value);
PIX_API int PIX_CALL put_ui32m(FILE *stream, uint32_t value);
PIX_API uint16_t PIX_CALL TIFF_read_ui16(FILE *stream, uint16_t byte_order);
PIX_API uint32_t PIX_CALL TIFF_read_ui32(FILE *stream, uint16_t byte_order);
PIX_API uint32_t PIX_CALL TIFF_read_data(FILE *stream, uint16_t byte_order, uint16_t field_type);

PIX_API uint32_t PIX_CALL PIX_read_BMP_file(uint32_t handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_write_BMP_file(uint32_t handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_convert_to_DIB_w31(uint32_t in, uint32_t out, uint32_t flags, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_read_TIFF_file(uint32_t handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_write_TIFF_file(uint32_t handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_read_TGA_file(uint32_t handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_write_TGA_file(uint32_t handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_write_EPS_file(uint32_t handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_read_EPS_file(uint32_t handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_write_raw_data_file(uint32_t handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_write_to_memory(uint32_t handle, uint32_t memory_handle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_read_from_memory(uint32_t memory_handle, uint32_t handle, uint16_t command);

/* ------------------------------------------------------------------------ */
/* JPEG codec                                                               */
/* ------------------------------------------------------------------------ */

PIX_API uint32_t PIX_CALL PIX_JPEG_image_create(void);
PIX_API uint32_t PIX_CALL PIX_JPEG_set_image(uint32_t source, uint32_t jpeg);
PIX_API uint32_t PIX_CALL PIX_JPEG_malloc_data(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_malloc_N_bytes_data(uint32_t handle, uint32_t bytes);
PIX_API uint32_t PIX_CALL PIX_JPEG_free_data(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_destroy_Tjpeg(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_copy_parameters(uint32_t source, uint32_t dest);
PIX_API uint32_t PIX_CALL PIX_JPEG_get_parameter(uint32_t handle, uint16_t id);
PIX_API FILE *PIX_CALL PIX_JPEG_get_file_ptr(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_set_file_ptr(uint32_t handle, FILE *stream);
PIX_API uint32_t PIX_CALL PIX_JPEG_build_image(uint32_t in, uint32_t out, uint16_t mode);

PIX_API uint32_t PIX_CALL PIX_JPEG_set_Quality_factor(uint32_t handle, uint16_t q);
PIX_API uint32_t PIX_CALL PIX_JPEG_set_Quantization_factor(uint32_t handle, uint16_t f);
PIX_API uint32_t PIX_CALL PIX_JPEG_make_Q_tables(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_set_default_H_tables(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_generate_H_codetable_LUTs(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_generate_Huffman_decode_tables(uint32_t handle);

PIX_API uint32_t PIX_CALL PIX_JPEG_compress(uint32_t source, uint32_t dest, uint16_t mode);
PIX_API uint32_t PIX_CALL PIX_JPEG_compress_image_to_image(uint32_t source, uint32_t dest,
                                                           uint16_t source_kind, uint16_t dest_kind);
PIX_API uint32_t PIX_CALL PIX_JPEG_decompress(uint32_t source, uint32_t dest, uint16_t mode);
PIX_API uint32_t PIX_CALL PIX_JPEG_decompress_image_to_image(uint32_t source, uint32_t dest,
                                                             uint16_t source_kind, uint16_t dest_kind);

PIX_API uint32_t PIX_CALL PIX_JPEG_file_read(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_file_open(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_file_close(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_buffer_read(uint32_t handle, uint8_t *buffer, int32_t length);
PIX_API uint32_t PIX_CALL PIX_JPEG_file_write(uint32_t handle, uint16_t mode);
PIX_API uint32_t PIX_CALL PIX_JPEG_buffer_write(uint32_t handle, uint8_t *buffer, uint32_t *written,
                                                int16_t mode);

PIX_API uint32_t PIX_CALL PIX_JPEG_sequence_build(uint32_t source, uint32_t sequence);
PIX_API uint32_t PIX_CALL PIX_JPEG_sequence_calc_length(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_JPEG_sequence_set_start_frame(uint32_t handle, int32_t frame);
PIX_API uint32_t PIX_CALL PIX_JPEG_sequence_extract_frame(uint32_t sequence, uint32_t frame_image,
                                                          uint32_t frame);

/* ------------------------------------------------------------------------ */
/* Image processing                                                         */
/* ------------------------------------------------------------------------ */

PIX_API uint32_t PIX_CALL PIX_IP_crop(uint32_t in, uint32_t out, int16_t *rectangle, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_IP_extract_region(uint32_t in, uint32_t out, uint32_t unused,
                                                uint32_t centre_x, uint32_t centre_y, uint32_t radius,
                                                uint16_t command);
PIX_API uint32_t PIX_CALL PIX_IP_subsample(uint32_t in, uint32_t out, uint16_t factor, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_IP_pixel_rep(uint32_t in, uint32_t out, uint16_t factor, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_IP_mirror_image(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_IP_rotate_image(uint32_t in, uint32_t out, uint16_t angle);
PIX_API uint32_t PIX_CALL PIX_IP_scale(uint32_t in, uint32_t out, uint32_t width, uint32_t height,
                                       uint16_t command);

PIX_API uint32_t PIX_CALL PIX_IP_filter_3x3(uint32_t in, uint32_t out, int16_t *kernel, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_IP_threshold_grayscale(uint32_t in, uint32_t out, uint8_t upper,
                                                     uint32_t lower, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_IP_histogram_generate(uint32_t handle, tPIX_Histogram *histogram,
                                                    uint16_t command);
PIX_API uint32_t PIX_CALL PIX_IP_histogram_clear(tPIX_Histogram *histogram);
PIX_API uint32_t PIX_CALL PIX_IP_histogram_copy(tPIX_Histogram *from, tPIX_Histogram *to);
PIX_API uint32_t PIX_CALL PIX_IP_histogram_filter(tPIX_Histogram *histogram, uint16_t order);
PIX_API uint32_t PIX_CALL PIX_IP_histogram_match(tPIX_Histogram *first, tPIX_Histogram *second,
                                                 uint16_t plane, uint32_t *result);
PIX_API uint32_t PIX_CALL PIX_IP_generate_averages(uint32_t handle, tPIX_Average *average,
                                                   uint16_t command);

/* Fields and pseudo-colour. */
PIX_API uint32_t PIX_CALL PIX_SPL_2fields_to_frame(uint32_t first, uint32_t second, uint32_t frame,
                                                   uint16_t command);
PIX_API uint32_t PIX_CALL PIX_SPL_field_to_frame(uint32_t field, uint32_t frame, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_SPL_interlace_frame(uint32_t frame, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_SPL_Data32_to_Y8(uint32_t in, uint32_t out, uint32_t shift, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_SPL_XXXX32_to_Y8(uint32_t in, uint32_t out, uint32_t byte_number,
                                               uint16_t command);
PIX_API uint32_t PIX_CALL PIX_SPL_YUV422_to_RGB_pseudo_colour(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_SPL_HSI_to_RGB_pseudo_colour(uint32_t in, uint32_t out, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_SPL_Y8_to_pseudo_colour(uint32_t in, uint32_t out, uint32_t unused,
                                                      uint16_t command);

/* Chroma key. */
PIX_API uint32_t PIX_CALL PIX_CK_create(void);
PIX_API uint32_t PIX_CALL PIX_CK_destroy(uint32_t handle);
PIX_API uint32_t PIX_CALL PIX_CK_set_parameter(uint32_t handle, uint16_t id, uint16_t value);
PIX_API uint32_t PIX_CALL PIX_CK_get_parameter(uint32_t handle, uint16_t id);
PIX_API uint32_t PIX_CALL PIX_CK_get_YUV_values(uint16_t colour);
PIX_API uint32_t PIX_CALL PIX_CK_get_component(uint16_t colour, uint16_t component);
PIX_API uint32_t PIX_CALL PIX_CK_get_YUV_values_RGB(uint16_t red, uint16_t green, uint16_t blue);
PIX_API uint32_t PIX_CALL PIX_CK_generate_UV_to_hue_LUT(void);
PIX_API uint32_t PIX_CALL PIX_CK_destroy_UV_to_hue_LUT(void);
PIX_API uint32_t PIX_CALL PIX_CK_chroma_key(uint32_t in, uint32_t out, uint32_t background,
                                            uint16_t colour, uint32_t chroma_key, uint16_t edge_mode,
                                            uint16_t command);
PIX_API uint32_t PIX_CALL PIX_CK_calibrate(uint32_t in, uint32_t chroma_key, uint16_t command);

/* ------------------------------------------------------------------------ */
/* Display and printing                                                     */
/* ------------------------------------------------------------------------ */

PIX_API uint32_t PIX_CALL PIX_display_create(void);
PIX_API uint32_t PIX_CALL PIX_display_destroy(uint32_t display);
PIX_API uint32_t PIX_CALL PIX_display_get_parameter(uint32_t display, uint16_t id);
PIX_API uint32_t PIX_CALL PIX_display_set_parameter(uint32_t display, uint16_t id, uint32_t value);
PIX_API uint32_t PIX_CALL PIX_display_get_flags(uint32_t display, uint32_t mask);
PIX_API uint32_t PIX_CALL PIX_display_set_flags(uint32_t display, uint32_t mask, int32_t on);
PIX_API uint32_t PIX_CALL PIX_display_get_ROI(uint32_t display, uint16_t *roi);
PIX_API uint32_t PIX_CALL PIX_display_set_ROI(uint32_t display, uint16_t mode, uint16_t *roi);
PIX_API uint32_t PIX_CALL PIX_display_set_hWnd(uint32_t display, PIX_HWND window);
PIX_API PIX_HWND PIX_CALL PIX_display_get_hWnd(uint32_t display);
PIX_API uint32_t PIX_CALL PIX_display_set_paint_hDC(uint32_t display, PIX_HDC dc);
PIX_API PIX_HDC PIX_CALL PIX_display_get_paint_hDC(uint32_t display);
PIX_API uint32_t PIX_CALL PIX_display_get_DeviceCaps(uint32_t display, uint16_t id);
PIX_API uint32_t PIX_CALL PIX_display_init(uint32_t display, PIX_HWND window);
PIX_API uint32_t PIX_CALL PIX_display_image(uint32_t display, uint32_t image, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_DRV_display_image(uint32_t display, uint32_t image, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_display_DIB(uint32_t display, uint32_t image);
PIX_API uint32_t PIX_CALL PIX_display_DDB(uint32_t display, uint32_t image, uint16_t command);
PIX_API uint32_t PIX_CALL PIX_display_print_DIB(uint32_t display, uint32_t image, int16_t percentage);

/* ------------------------------------------------------------------------ */
/* Support layer                                                            */
/* ------------------------------------------------------------------------ */

PIX_API void PIX_CALL KVB_check_mallocs(void);
PIX_API double PIX_CALL KVB_get_malloc_info(void);
PIX_API void PIX_CALL KVB_loop_delay(uint32_t ignored);
PIX_API uint32_t PIX_CALL KVB_mul(uint32_t a, uint32_t b);
PIX_API uint32_t PIX_CALL KVB_check_mode_one_selected(uint32_t mode, uint32_t mask);
PIX_API uint32_t PIX_CALL KVB_check_mode_invalid(uint32_t mode, uint32_t forbidden);
PIX_API int PIX_CALL KVB_pause(const char *text);
PIX_API char *PIX_CALL KVB_sscanf(const char *text, uint16_t *value);
PIX_API int PIX_CALL KVB_strncmp(const char *a, const char *b, uint32_t n);
PIX_API char *PIX_CALL KVB_str_tolower(char *text);
PIX_API char *PIX_CALL KVB_str_toupper(char *text);
PIX_API uint16_t PIX_CALL parse_command(tKVB_Command *record, uint16_t argc, char **argv);

PIX_API uint32_t PIX_CALL KVB_locate_fpga_rbt_file(const char *variable, char *file_name);
PIX_API uint32_t PIX_CALL KVB_get_rbt_bit_length(const char *file_name);
PIX_API uint32_t PIX_CALL KVB_get_fpga_data_and_length(const char *file_name, tKVB_FPGA_Data *record);
PIX_API uint32_t PIX_CALL KVB_get_rbt_date_string(const char *file_name, char *date);

#ifdef __cplusplus
}
#endif

#endif /* PIX95_H */
