// The reason for an answer's status, for answers that the page cannot read.

const REASONS = {
  401: 'Unauthorized',
  403: 'Forbidden',
  404: 'NotFound',
  410: 'Gone',
  415: 'TransVideoNotSupported',
  500: 'Internal',
  503: 'TransEnable',
  504: 'NotReady',
  507: 'TransSapceNotEnough',
};

// undefined for a status without a reason.
export const reasonOfStatus = (status) => REASONS[status];
