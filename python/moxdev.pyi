"""Type stubs of the moxdev module (a compiled extension): the documents
`moxdev ... --json` prints, as dicts and lists."""

import os
from typing import Any, Dict, List, Optional, Sequence, Union

__version__: str

Document = Dict[str, Any]
IdBytes = Union[str, bytes, bytearray, Sequence[int]]
SfdpRead = Union[bytes, bytearray, str, "os.PathLike[str]"]

class Error(Exception): ...

class NotFoundError(Error, LookupError):
    suggestions: List[str]
    def __init__(self, message: str, suggestions: Sequence[str] = ...) -> None: ...

class InvalidInputError(Error, ValueError): ...
class UnavailableError(Error, OSError): ...

class InternalError(Error):
    condition: str
    module: str
    unit: str
    line: int
    def __init__(self, message: str, condition: str, module: str, unit: str, line: int) -> None: ...

def reload() -> None: ...
def name(name: str) -> Document: ...
def opn(opn: str) -> Document: ...

class flash:
    @staticmethod
    def identify(id: IdBytes, *, silicon_id: bool = ..., sfdp: Optional[SfdpRead] = ...) -> Document: ...
    @staticmethod
    def show(name: str) -> List[Document]: ...
    @staticmethod
    def list(
        pattern: Optional[str] = ...,
        *,
        maker: Optional[str] = ...,
        size: Optional[str] = ...,
        voltage: Optional[str] = ...,
        all: bool = ...,
    ) -> List[Document]: ...
    @staticmethod
    def sfdp(read: SfdpRead, *, id: Optional[IdBytes] = ..., name: Optional[str] = ...) -> Document: ...

class device:
    @staticmethod
    def show(name: str) -> Document: ...

class hps:
    @staticmethod
    def list(kind: str) -> List[Document]: ...
