/* Every public header, compiled as C99 with -pedantic. */
#include "rumo/rumo.h"
#include "rumo/rumo_sim.h"
#include "tavo/cmsv.h"
#include "tavo/driver_elable.h"
#include "tavo/driver_i2c.h"
#include "tavo/driver_ipmi.h"
#include "tavo/driver_pci.h"
#include "tavo/i2c_smbus.h"
#include "tavo/tavo_control.h"
#include "tavo/tavo_drv_api.h"
#include "tavo/tavo_export.h"
#include "tavo/tavo_kite.h"
#include "tavo/tavo_log.h"
#include "tavo/tavo_mcu.h"
#include "tavo/tavo_pcie.h"
#include "tavo/tavo_query.h"
#include "tavo/tavo_upgrade.h"

int public_headers_compile_as_c(void);
int public_headers_compile_as_c(void) {
    return (int)sizeof(tavo_card_table) + (int)sizeof(tavo_mcu_passthru_record) +
           (int)sizeof(CmsvCreateParams) + (int)sizeof(cms_file_info);
}
