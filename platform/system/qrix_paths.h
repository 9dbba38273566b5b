// Where the platform keeps its own configuration. Fixed paths, as on the device: tests and the
// demo get them from the sandbox, never from a prefix.
#ifndef QRIX_PLATFORM_SYSTEM_QRIX_PATHS_H_
#define QRIX_PLATFORM_SYSTEM_QRIX_PATHS_H_

#define QRIX_PLATFORM_CONF_DIR "/var/qrix/etc"
#define QRIX_MAIL_CONF QRIX_PLATFORM_CONF_DIR "/mail.conf"
#define QRIX_FIREWALL_CONF QRIX_PLATFORM_CONF_DIR "/firewall.conf"
#define QRIX_SERVICE_CONF_DIR QRIX_PLATFORM_CONF_DIR "/services"

#endif  // QRIX_PLATFORM_SYSTEM_QRIX_PATHS_H_
