// The definition tables of the plug-in's classes, the folder item extension and the global
// methods, in the host's version-13 layout. They are writable: REALPluginMain adapts their flags,
// version words and record sizes to the running host before registering them.
#include "plugin/Tables.h"

#include <stddef.h>

#include <iterator>

#include "convert/PNGPicture.h"
#include "plugin/Registration.h"
#include "plugin/TableBuilders.h"
#include "reader/PNGReader.h"

using namespace tables;

namespace {

// Offset in PNGReaderData of a field of its embedded reader record.
constexpr size_t ReaderField(size_t offsetInReader) {
  return offsetof(PNGReaderData, reader) + offsetInReader;
}

// "PNGLibVersion as string", shared by every class.
REALmethodDefinition libVersionMethods[] = {
    Method(Proc(GetPNGVersion), "PNGLibVersion as string", kConsole),
};

// ---------------------------------------------------------------------------------------------
// PNGReaderKRV
// ---------------------------------------------------------------------------------------------

REALproperty readerProperties[] = {
    FieldProperty("Width", "Integer", kRuntimeOnly | kConsole,
                  ReaderField(offsetof(PNGReader, width))),
    FieldProperty("Height", "Integer", kRuntimeOnly | kConsole,
                  ReaderField(offsetof(PNGReader, height))),
    FieldProperty("InterlaceType", "Integer", kRuntimeOnly | kConsole,
                  ReaderField(offsetof(PNGReader, interlaceType))),
    FieldProperty("ColorType", "Integer", kRuntimeOnly | kConsole,
                  ReaderField(offsetof(PNGReader, colorType))),
    FieldProperty("BitDepth", "Integer", kRuntimeOnly | kConsole,
                  ReaderField(offsetof(PNGReader, bitDepth))),
    FieldProperty("Interlacing", "Integer", kRuntimeOnly | kConsole,
                  ReaderField(offsetof(PNGReader, passes))),
    FieldProperty("Mask", "Picture", kRuntimeOnly | kConsoleSafeMark,
                  ReaderField(offsetof(PNGReader, mask))),
    FieldProperty("Pict", "Picture", kRuntimeOnly | kConsoleSafeMark,
                  ReaderField(offsetof(PNGReader, pict))),
    FieldProperty("SwapRB", "Boolean", kRuntimeOnly | kConsole,
                  ReaderField(offsetof(PNGReader, swapRB))),
    FieldProperty("SourceData", "String", kRuntimeOnly | kConsole,
                  offsetof(PNGReaderData, sourceData)),
    FieldProperty("SourceFile", "FolderItem", kRuntimeOnly | kConsole,
                  offsetof(PNGReaderData, sourceFile)),
    HandlerProperty("AllowDamaged", "Boolean", kRuntimeOnly | kConsole, Proc(GetAllowDamaged),
                    Proc(SetAllowDamaged)),
    FieldProperty("PixelLimit", "Integer", kRuntimeOnly | kConsole,
                  ReaderField(offsetof(PNGReader, pixelLimit))),
};

REALmethodDefinition readerMethods[] = {
    Method(Proc(rbOpenSpecialData), "OpenSpecialData(data as string) as boolean", kConsole),
    Method(Proc(rbCombinePictureWithMask), "CombinePictureWithMask as picture", kConsoleSafeMark),
    Method(Proc(rbApplyOptions),
           "ApplyOptions(gamma as double = 0.0, ScreenGamma as double = -1.0) as boolean",
           kConsole),
    Method(Proc(rbOpenReadFile), "OpenFile(file as folderitem) as boolean", kConsole),
    Method(Proc(rbOpenReadString), "OpenData(data as string) as boolean", kConsole),
    Method(Proc(rbOpenRead), "Open(file as folderitem, data as string) as boolean", kConsole),
    Method(Proc(rbReadPicture), "ReadPicture as boolean", kConsoleSafeMark),
    Method(Proc(rbGetRowBytes), "RowBytes as integer", kConsole),
    Method(Proc(rbReadRow), "ReadRow as memoryblock", kConsole),
    Method(Proc(rbReadRowMem), "ReadRow(mem as memoryblock) as boolean", kConsole),
    Method(Proc(rbReadRowMaskOnly), "ReadRowMaskOnly(mem as memoryblock) as boolean", kConsole),
    Method(Proc(rbReadRowAlphaOnly), "ReadRowAlphaOnly(mem as memoryblock) as boolean", kConsole),
    Method(Proc(rbReadICCProfile),
           "ReadICCProfile(byref name as string, byref compression as integer, byref profile as "
           "string) as boolean",
           kConsole),
    Method(Proc(rbReadsRGBTag), "ReadsRGBTag(byref file_srgb_intent as integer) as boolean",
           kConsole),
    Method(Proc(rbReadAlphaPicture), "ReadAlphaPicture() As Boolean", kConsoleSafeMark),
    Method(Proc(rbTextCount), "TextCount As Integer", kConsole),
    Method(Proc(rbTextKey), "TextKey(index As Integer) As String", kConsole),
    Method(Proc(rbTextValue), "TextValue(index As Integer) As String", kConsole),
};

}  // namespace

REALevent PNGReaderKRVEvents[2] = {
    Event("Error(msg as string)"),
    Event("Warning(msg as string)"),
};

REALclassDefinition PNGReaderKRVClass = {
    kTableVersion,
    "PNGReaderKRV",
    nullptr,  // no superclass
    sizeof(PNGReaderData),
    0,
    Proc(PNGReaderConstructor),
    Proc(PNGReaderDestructor),
    readerProperties,
    std::size(readerProperties),
    readerMethods,
    std::size(readerMethods),
    PNGReaderKRVEvents,
    std::size(PNGReaderKRVEvents),
    nullptr,  // event instances
    0,
    nullptr,  // interfaces
    nullptr,  // attributes
    0,
    nullptr,  // constants
    0,
    kConsole,
    nullptr,  // shared properties
    0,
    libVersionMethods,
    std::size(libVersionMethods),
    nullptr,  // delegates
    0,
    nullptr,  // enums
    0,
};

// ---------------------------------------------------------------------------------------------
// PNGPictureKRV
// ---------------------------------------------------------------------------------------------

namespace {

REALproperty pictureProperties[] = {
    FieldProperty("Width", "Integer", kRuntimeOnly | kConsole, offsetof(PNGPictureData, width)),
    FieldProperty("Height", "Integer", kRuntimeOnly | kConsole, offsetof(PNGPictureData, height)),
    FieldProperty("Mask", "Picture", kRuntimeOnly | kConsoleSafeMark,
                  offsetof(PNGPictureData, mask)),
    FieldProperty("Pict", "Picture", kRuntimeOnly | kConsoleSafeMark,
                  offsetof(PNGPictureData, pict)),
};

REALmethodDefinition pictureMethods[] = {
    Method(Proc(CombinePictureWithMask), "CombinePictureWithMask as picture", kConsoleSafeMark),
};

REALconstant pictureConstants[] = {
    Constant("kDefaultGamma = 0"),
};

REALmethodDefinition pictureSharedMethods[] = {
    Method(Proc(GetPNGVersion), "PNGLibVersion as string", kConsole),
};

REALmethodDefinition extensionMethods[] = {
    Method(Proc(OpenAsPNGKRV),
           "OpenAsPNGKRV(gamma as single = 0.0, AllowDamaged as Boolean = false) as PNGPictureKRV",
           kConsole),
    Method(Proc(SaveAsPNGKRV3), "SaveAsPNGKRV(pic as picture, gamma as single = 0.0) as boolean",
           kConsoleSafeMark),
    Method(Proc(SaveAsPNGKRV4),
           "SaveAsPNGKRV(pic as picture, mask as picture, gamma as single = 0.0) as boolean",
           kConsoleSafeMark),
    Method(Proc(SaveAsPNGKRV5),
           "SaveAsPNGKRV(pic as picture, gamma as single, Interlace as Boolean, FilterType as "
           "integer) as boolean",
           kConsoleSafeMark),
    Method(Proc(SaveAsPNGKRV6),
           "SaveAsPNGKRV(pic as picture, mask as picture, gamma as single, Interlace as Boolean, "
           "FilterType as integer) as boolean",
           kConsoleSafeMark),
    Method(Proc(SaveAs8BitPNGKRV4),
           "SaveAs8BitPNGKRV(pic as picture, colors() as color, gamma as single = 0.0) as boolean",
           kConsoleSafeMark),
    Method(Proc(SaveAs8BitPNGwithAlphaKRV5),
           "SaveAs8BitAlphaPNGKRV(pic as picture, colors() as color, alphas() as integer, gamma "
           "as single = 0.0) as boolean",
           kConsoleSafeMark),
    Method(Proc(SaveAs8BitPNGKRV6),
           "SaveAs8BitPNGKRV(pic as picture, colors() as color, gamma as single, Interlace as "
           "Boolean, FilterType as integer) as boolean",
           kConsoleSafeMark),
    Method(Proc(SaveAs8BitPNGwithAlphaKRV7),
           "SaveAs8BitAlphaPNGKRV(pic as picture, colors() as color, alphas() as integer, gamma "
           "as single, Interlace as Boolean, FilterType as integer) as boolean",
           kConsoleSafeMark),
    Method(Proc(OpenAsAlphaPNGKRV), "OpenAsAlphaPNGKRV() As Picture", kConsoleSafeMark),
    Method(Proc(SaveAsAlphaPNGKRV),
           "SaveAsAlphaPNGKRV(pic As Picture, gamma As Single = 0.0) As Boolean", kConsoleSafeMark),
};

REALmethodDefinition globalMethods[] = {
    Method(Proc(PNGStringToPNGPictureKRV),
           "PNGStringToPNGPictureKRV(data as string, gamma as single = 0.0, AllowDamaged as "
           "boolean = false) as PNGPictureKRV",
           kConsole),
    Method(Proc(PNGStringToPictureKRV),
           "PNGStringToPictureKRV(data as string, gamma as single = 0.0, AllowDamaged as boolean "
           "= false) as picture",
           kConsoleSafeMark),
    Method(Proc(PictureToPNGStringKRV2),
           "PictureToPNGStringKRV(pic as picture, gamma as single = 0.0) as string",
           kConsoleSafeMark),
    Method(Proc(PictureToPNGStringKRV3),
           "PictureToPNGStringKRV(pic as picture, mask as picture, gamma as single = 0.0) as "
           "string",
           kConsoleSafeMark),
    Method(Proc(PictureToPNGStringKRV4),
           "PictureToPNGStringKRV(pic as picture, gamma as single, Interlace as Boolean, "
           "FilterType as integer) as string",
           kConsoleSafeMark),
    Method(Proc(PictureToPNGStringKRV5),
           "PictureToPNGStringKRV(pic as picture, mask as picture, gamma as single, Interlace as "
           "Boolean, FilterType as integer) as string",
           kConsoleSafeMark),
    Method(Proc(CgBIToPNGStringKRV), "CgBIToPNGStringKRV(data as string) as string", kConsole),
    Method(Proc(PNGStringToAlphaPictureKRV),
           "PNGStringToAlphaPictureKRV(data As String) As Picture", kConsoleSafeMark),
    Method(Proc(AlphaPictureToPNGStringKRV),
           "AlphaPictureToPNGStringKRV(pic As Picture, gamma As Single = 0.0) As String",
           kConsoleSafeMark),
    // Module-level properties, each as a getter and an assigning setter.
    Method(Proc(GetSaveThreads), "PNGSaveThreadsKRV as integer", kConsole),
    Method(Proc(SetSaveThreads), "PNGSaveThreadsKRV(assigns threads as integer)", kConsole),
    Method(Proc(GetOpenPixelLimit), "PNGOpenPixelLimitKRV as integer", kConsole),
    Method(Proc(SetOpenPixelLimit), "PNGOpenPixelLimitKRV(assigns pixels as integer)", kConsole),
};

}  // namespace

REALclassDefinition PNGPictureKRVClass = {
    kTableVersion,
    "PNGPictureKRV",
    nullptr,  // no superclass
    sizeof(PNGPictureData),
    0,
    nullptr,  // no constructor: instances come only from the one-call openers
    Proc(PNGPictureDestructor),
    pictureProperties,
    std::size(pictureProperties),
    pictureMethods,
    std::size(pictureMethods),
    nullptr,  // events
    0,
    nullptr,  // event instances
    0,
    nullptr,  // interfaces
    nullptr,  // attributes
    0,
    pictureConstants,
    std::size(pictureConstants),
    kConsole,
    nullptr,  // shared properties
    0,
    pictureSharedMethods,
    std::size(pictureSharedMethods),
    nullptr,  // delegates
    0,
    nullptr,  // enums
    0,
};

// ---------------------------------------------------------------------------------------------
// The folder item extension and the global methods
// ---------------------------------------------------------------------------------------------

REALclassDefinition FolderitemExtension = {
    kTableVersion,
    "Folderitem",  // the host's class that the methods extend
    nullptr,
    0,
    0,
    nullptr,
    nullptr,
    nullptr,  // properties
    0,
    extensionMethods,
    std::size(extensionMethods),
    nullptr,  // events
    0,
    nullptr,  // event instances
    0,
    nullptr,  // interfaces
    nullptr,  // attributes
    0,
    nullptr,  // constants
    0,
    kConsole,
    nullptr,  // shared properties
    0,
    nullptr,  // shared methods
    0,
    nullptr,  // delegates
    0,
    nullptr,  // enums
    0,
};

REALmethodDefinition* const GlobalMethods = globalMethods;
const size_t GlobalMethodCount = std::size(globalMethods);

REALclassDefinition* const PluginClasses[] = {&PNGReaderKRVClass, &PNGWriterKRVClass,
                                              &PNGPictureKRVClass};
const size_t PluginClassCount = std::size(PluginClasses);
