#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes zip packages of exactly the given size: a file of random data in a folder named after the package.

    scripts/lib/noise-package.py FOLDER MIB...      writes FOLDER/MIB.zip
"""

import os
import pathlib
import sys
import zipfile

MEBIBYTE = 2**20


def write_package(path, noise_bytes):
    """Returns the size of the package."""
    with zipfile.ZipFile(path, "w", zipfile.ZIP_STORED) as package:
        package.writestr(f"{path.stem}/", b"")
        with package.open(f"{path.stem}/noise.bin", "w") as file:
            for start in range(0, noise_bytes, MEBIBYTE):
                file.write(os.urandom(min(MEBIBYTE, noise_bytes - start)))
    return path.stat().st_size


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    for mebibytes in sys.argv[2:]:
        path = pathlib.Path(sys.argv[1], f"{mebibytes}.zip")
        headers = write_package(path, 0)
        write_package(path, int(mebibytes) * MEBIBYTE - headers)


if __name__ == "__main__":
    main()
