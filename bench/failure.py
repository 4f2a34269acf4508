"""What ends a benchmark early: something could not be measured."""


class Failure(Exception):
    """Its text says what failed, and how."""
