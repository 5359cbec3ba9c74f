// The one-call conversions: a whole PNG into a picture and mask (PNGPictureKRV) or one combined
// picture, and a picture into PNG data or a file, each through a private reader or writer record
// built and torn down within the call.
#pragma once

#include "host/HostRuntime.h"

// Instance data of PNGPictureKRV: the decoded picture and mask, held apart.
struct PNGPictureData {
  REALpicture mask;  // one reference held
  REALpicture pict;  // one reference held
  RBInteger width;
  RBInteger height;
};

// Decodes a string (or, failing that, a file) into the record's picture and mask. Damaged data
// always gives the picture as far as it was decoded; `allowDamaged` is accepted and not used.
bool OpenPNG(PNGPictureData& record, REALfolderItem file, REALstring data, float gamma,
             signed char allowDamaged);

// Encodes `picture` (with `mask` as alpha when given) as 8-bit RGB or RGBA: into `out` when it
// is given, else into `file`.
bool SavePNG7(REALpicture picture, REALpicture mask, REALstring* out, REALfolderItem file,
              float gamma, signed char interlace, RBInteger filter);
// Encodes `picture` as 8-bit palette indices into the colours of `colors`, into `file`.
bool Save8BitPNG7(REALpicture picture, REALarray colors, REALstring* out, REALfolderItem file,
                  float gamma, signed char interlace, RBInteger filter);
// As Save8BitPNG7, with a transparency table from `alphas`.
bool Save8BitPNGwithAlpha8(REALpicture picture, REALarray colors, REALarray alphas, REALstring* out,
                           REALfolderItem file, float gamma, signed char interlace,
                           RBInteger filter);

// PNGPictureKRV.
void PNGPictureDestructor(REALobject instance);
REALpicture CombinePictureWithMask(REALobject instance);

// Global methods.
REALobject PNGStringToPNGPictureKRV(REALstring data, float gamma, RBBoolean allowDamaged);
REALpicture PNGStringToPictureKRV(REALstring data, float gamma, RBBoolean allowDamaged);
REALstring PictureToPNGStringKRV2(REALpicture pic, float gamma);
REALstring PictureToPNGStringKRV3(REALpicture pic, REALpicture mask, float gamma);
REALstring PictureToPNGStringKRV4(REALpicture pic, float gamma, RBBoolean interlace,
                                  RBInteger filter);
REALstring PictureToPNGStringKRV5(REALpicture pic, REALpicture mask, float gamma,
                                  RBBoolean interlace, RBInteger filter);
// The image of PNG data (or, failing that, a file) as one picture with an alpha channel, its
// samples as the file stores them (no gamma correction), or nil. Raises RuntimeException on a
// host without such pictures.
REALpicture OpenAlphaPNG(REALfolderItem file, REALstring data);
REALpicture PNGStringToAlphaPictureKRV(REALstring data);
// Encodes a picture with an alpha channel as 8-bit RGBA, any other as RGB: into `out` when it is
// given, else into `file`.
bool SaveAlphaPNG(REALpicture picture, REALstring* out, REALfolderItem file, float gamma);
REALstring AlphaPictureToPNGStringKRV(REALpicture pic, float gamma);
// The PixelLimit of the private readers of the one-call openers (see PNGReaderKRV's
// PixelLimit), read and set by user code as one module-level property.
RBInteger GetOpenPixelLimit();
void SetOpenPixelLimit(RBInteger pixels);
// The Threads value of the private writers of the one-call savers (see PNGWriterKRV's Threads),
// read and set by user code as one module-level property.
RBInteger GetSaveThreads();
void SetSaveThreads(RBInteger threads);
// CgBI data converted into a standard PNG stream (a string with no encoding), or nil.
REALstring CgBIToPNGStringKRV(REALstring data);

// Folder item extension methods; the folder item comes first.
REALobject OpenAsPNGKRV(REALfolderItem file, float gamma, RBBoolean allowDamaged);
RBBoolean SaveAsPNGKRV3(REALfolderItem file, REALpicture pic, float gamma);
REALpicture OpenAsAlphaPNGKRV(REALfolderItem file);
RBBoolean SaveAsAlphaPNGKRV(REALfolderItem file, REALpicture pic, float gamma);
RBBoolean SaveAsPNGKRV4(REALfolderItem file, REALpicture pic, REALpicture mask, float gamma);
RBBoolean SaveAsPNGKRV5(REALfolderItem file, REALpicture pic, float gamma, RBBoolean interlace,
                        RBInteger filter);
RBBoolean SaveAsPNGKRV6(REALfolderItem file, REALpicture pic, REALpicture mask, float gamma,
                        RBBoolean interlace, RBInteger filter);
RBBoolean SaveAs8BitPNGKRV4(REALfolderItem file, REALpicture pic, REALarray colors, float gamma);
RBBoolean SaveAs8BitPNGKRV6(REALfolderItem file, REALpicture pic, REALarray colors, float gamma,
                            RBBoolean interlace, RBInteger filter);
RBBoolean SaveAs8BitPNGwithAlphaKRV5(REALfolderItem file, REALpicture pic, REALarray colors,
                                     REALarray alphas, float gamma);
RBBoolean SaveAs8BitPNGwithAlphaKRV7(REALfolderItem file, REALpicture pic, REALarray colors,
                                     REALarray alphas, float gamma, RBBoolean interlace,
                                     RBInteger filter);
