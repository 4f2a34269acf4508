"""The exception that ends a benchmark early."""


class Failure(Exception):
    """A measurement that failed. Its text names the failed step and the reason."""
