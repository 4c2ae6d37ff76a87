"""Stand-in for the Windows registry module on other hosts.

vxrcomn imports ``winreg`` as it does on Windows but never uses it; the tests
and examples put this folder on ``sys.path`` on non-Windows hosts only.  Do not
install it.
"""

HKEY_CLASSES_ROOT = 0x80000000
HKEY_CURRENT_USER = 0x80000001
HKEY_LOCAL_MACHINE = 0x80000002
HKEY_USERS = 0x80000003


def _unavailable(*args, **kwargs):
    raise OSError("the Windows registry is not available on this host")


OpenKey = QueryValueEx = CloseKey = ConnectRegistry = _unavailable
