// The reason that an answer's status stands for, where the answer itself cannot be read.

const REASONS = {
  401: 'Unauthorized',
  403: 'Forbidden',
  404: 'NotFound',
  415: 'TransVideoNotSupported',
  500: 'Internal',
  503: 'TransEnable',
  504: 'NotReady',
  507: 'TransSapceNotEnough',
};

// undefined for a status that says nothing.
export const reasonOfStatus = (status) => REASONS[status];
