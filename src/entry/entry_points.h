#pragma once

/// The module's two exported functions.
extern "C" {

/// Registers the namespaces "tavlox" and "tavlox.io" with the class File and the function getCompression.
/// Works once per process, whichever of the namespaces exist already; a further call does nothing, even if
/// the first one failed.
__attribute__((visibility("default"))) void CvInitialize_orra_tavlox_io();

/// Does nothing: what was registered stays for the life of the process. The host asks for the
/// name with "orra" twice.
__attribute__((visibility("default"))) void CvTerminate_orra_orra_tavlox_io();
}
