"""The values of packaging/maker.env."""

import os
import subprocess

HERE = os.path.dirname(os.path.abspath(__file__))


def values():
    """Returns {variable: value}; variables of the environment take precedence."""
    done = subprocess.run(["bash", "-c", '. "$0" && env -0', os.path.join(HERE, "maker.env")], check=True,
                          stdout=subprocess.PIPE)
    pairs = (pair.split("=", 1) for pair in done.stdout.decode().split("\0") if "=" in pair)
    return {name: value for name, value in pairs if name.startswith("MAKER_")}
