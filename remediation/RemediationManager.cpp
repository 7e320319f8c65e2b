#include "remediation/RemediationManager.h"
