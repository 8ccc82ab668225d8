# The package of this checkout, unless an installed one is asked for.
import os
import sys

if not os.environ.get("PIX95_TEST_INSTALLED"):
    sys.path.insert(0, os.path.join(os.path.dirname(__file__), ".."))
