// KP_API marks what the shared libraries export; everything else stays hidden.
#ifndef KP_EXPORT_H
#define KP_EXPORT_H

#define KP_API __attribute__((visibility("default")))

#endif
