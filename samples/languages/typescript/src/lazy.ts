export const x = 1;
