// Symbols of the platform and the module are hidden unless marked: what a library offers to
// other programs is exactly what carries this mark.
#ifndef QRIX_PLATFORM_QRIX_EXPORT_H_
#define QRIX_PLATFORM_QRIX_EXPORT_H_

#define QRIX_EXPORT __attribute__((visibility("default")))

#endif  // QRIX_PLATFORM_QRIX_EXPORT_H_
