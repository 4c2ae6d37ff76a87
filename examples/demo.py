"""The main job of `make demo`: read every bundled sample file with the
module's functions, as the conversion tools read them.  Logs and listings go
to build/demo/."""
import glob
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)

import read_epc  # noqa: E402  (vxrtool puts the module on the path)
import read_raw  # noqa: E402
from vxrtool import run  # noqa: E402


def main():
    samples = os.path.join(HERE, "samples")
    status = read_raw.main(sorted(glob.glob(os.path.join(samples, "*.raw"))))
    status |= read_epc.main(sorted(glob.glob(os.path.join(samples, "*.epc"))))
    return status


if __name__ == "__main__":
    run(main)
