// The definition table of PNGWriterKRV, in the host's version-13 layout. Like the other tables it
// is writable: REALPluginMain adapts its flags, version word and record size to the running host.
#include <stddef.h>

#include <iterator>

#include "plugin/Registration.h"
#include "plugin/TableBuilders.h"
#include "plugin/Tables.h"
#include "reader/PNGReader.h"
#include "writer/PNGWriter.h"

using namespace tables;

namespace {

// An Integer property that the host reads and writes itself, at byte `offset` of the record.
REALproperty IntegerField(const char* name, size_t offset) {
  return FieldProperty(name, "Integer", kRuntimeOnly | kConsole, offset);
}

REALproperty writerProperties[] = {
    IntegerField("Width", offsetof(PNGWriter, width)),
    IntegerField("Height", offsetof(PNGWriter, height)),
    IntegerField("bpc", offsetof(PNGWriter, bpc)),
    IntegerField("Type", offsetof(PNGWriter, type)),
    IntegerField("Rowbytes", offsetof(PNGWriter, rowBytes)),
    IntegerField("Threads", offsetof(PNGWriter, threads)),
};

REALmethodDefinition writerMethods[] = {
    Method(Proc(rbSetResolution),
           "SetResolution(ResolutionHorizontal as integer, ResolutionVertical as integer, Unit as "
           "integer) as boolean",
           kConsole),
    Method(Proc(rbSetsRGB), "SetsRGB(intent as integer) as boolean", kConsole),
    Method(
        Proc(rbSetICCProfile),
        "SetICCProfile(name as string, CompressionType as integer, Profile as string) as boolean",
        kConsole),
    Method(Proc(rbSetGamma), "SetGamma(gamma as double = 0.0) as boolean", kConsole),
    Method(Proc(rbOpenWriteDestination), "OpenWriteDestination(file as folderitem) as boolean",
           kConsole),
    Method(Proc(rbWriteRow), "WriteRow(row as memoryblock)", kConsole),
    Method(Proc(rbFinish), "Finish as string", kConsole),
    Method(Proc(rbCloseDestination), "CloseDestination", kConsole),
    Method(Proc(rbWriteInfo), "WriteInfo as boolean", kConsole),
    Method(Proc(rbWriteRows), "WriteRows as boolean", kConsole),
    Method(Proc(rbWriteEnd), "WriteEnd as boolean", kConsole),
    Method(Proc(rbSetPalette), "SetPalette as boolean", kConsole),
    Method(Proc(rbSetAlphas), "SetAlphas as boolean", kConsole),
    Method(Proc(rbSetHeader),
           "SetHeader(Interlace as boolean = false, Filter as integer = -1, Compression as Integer "
           "= -1) as boolean",
           kConsole),
    Method(Proc(rbSetPaletteData), "SetPaletteData(colors() as color) as boolean", kConsole),
    Method(Proc(rbSetAlphaData), "SetAlphaData(alphas() as integer, colors() as color) as boolean",
           kConsole),
    Method(Proc(rbLoadRGBPicture),
           "SetRGBPicture(pict as picture, mask as picture = nil) as boolean", kConsoleSafeMark),
    Method(Proc(rbLoadGrayPicture),
           "SetGrayPicture(pict as picture, mask as picture = nil) as boolean", kConsoleSafeMark),
    Method(Proc(rbLoadRows), "SetRows(rows() as memoryblock) as boolean", kConsoleSafeMark),
    Method(Proc(rbLoadPalettePicture), "SetPalettePicture(pict as picture) as boolean",
           kConsoleSafeMark),
    Method(Proc(rbLoadAlphaPicture), "SetAlphaPicture(pict As Picture) As Boolean",
           kConsoleSafeMark),
    Method(Proc(rbAddText),
           "AddText(key As String, value As String, compressed As Boolean = False) As Boolean",
           kConsole),
};

REALconstant writerConstants[] = {
    Constant("ResolutionUnknown = 0"), Constant("ResolutionMeter = 1"),
    Constant("ResolutionDPI = 2"),     Constant("TypeGray = 0"),
    Constant("TypePalette = 1"),       Constant("TypeRGB = 2"),
    Constant("TypeRGBA = 6"),          Constant("TypeGrayA = 4"),
};

REALmethodDefinition writerSharedMethods[] = {
    Method(Proc(GetPNGVersion), "PNGLibVersion as string", kConsole),
};

}  // namespace

REALevent PNGWriterKRVEvents[2] = {
    {"Error(msg as string)", 0, 0, nullptr},
    {"Warning(msg as string)", 0, 0, nullptr},
};

REALclassDefinition PNGWriterKRVClass = {
    kTableVersion,
    "PNGWriterKRV",
    nullptr,  // no superclass
    sizeof(PNGWriter),
    0,
    Proc(PNGWriterConstructor),
    Proc(PNGWriterDestructor),
    writerProperties,
    std::size(writerProperties),
    writerMethods,
    std::size(writerMethods),
    PNGWriterKRVEvents,
    std::size(PNGWriterKRVEvents),
    nullptr,  // event instances
    0,
    nullptr,  // interfaces
    nullptr,  // attributes
    0,
    writerConstants,
    std::size(writerConstants),
    kConsole,
    nullptr,  // shared properties
    0,
    writerSharedMethods,
    std::size(writerSharedMethods),
    nullptr,  // delegates
    0,
    nullptr,  // enums
    0,
};
