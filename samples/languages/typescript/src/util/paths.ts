import { add } from 'math';

export const twice = (n: number) => add(n, n);
