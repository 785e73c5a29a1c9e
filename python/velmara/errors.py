"""One exception for each way in which something does not work. All are `Error`."""

from __future__ import annotations


class Error(Exception):
    """Something did not work: what, in whole sentences, and what may be tried."""

    def __init__(self, message: str, advice: str = "") -> None:
        super().__init__(message, advice)
        self.message = message
        self.advice = advice

    def __str__(self) -> str:
        return f"{self.message} {self.advice}".rstrip()


class Unusable(Error):
    """A wrong input, or something on this computer that cannot be used."""


class FileExists(Error):
    """A file is there that is not to be replaced."""


class NotAFile(Error):
    """A folder, a device and the like stands where a file was meant."""


class LinkFailed(Error):
    """The link to the adapter cannot be opened."""


class NoAdapter(Error):
    """The link is open, but no adapter answers on it."""


class NoVehicle(Error):
    """The adapter answers, but no vehicle does."""


class LinkLost(Error):
    """The link was lost on the way."""


class NoData(Error):
    """The vehicle refuses, or does not have what was asked for."""


class Cancelled(Error):
    """Somebody has called the work off."""
