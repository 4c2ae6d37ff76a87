"""The main job of `make demo`: read every bundled sample file with the
module's functions, as the conversion tools read them."""
import glob
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)

import read_raw  # noqa: E402  (puts the module on the path)


def main():
    samples = os.path.join(HERE, "samples")
    read_raw.main(sorted(glob.glob(os.path.join(samples, "*.raw"))))
    epc_files = sorted(glob.glob(os.path.join(samples, "*.epc")))
    if epc_files and os.path.exists(os.path.join(HERE, "read_epc.py")):
        import read_epc
        read_epc.main(epc_files)
    return 0


if __name__ == "__main__":
    sys.exit(main())
